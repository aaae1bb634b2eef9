// Volume storage: geometry, slice views over one buffer and their lifetime,
// and the slice-by-slice operations.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/engines.h"
#include "lumo/image/formats.h"
#include "lumo/image/volume_data.h"
#include "support/bytes.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;
using testing::Counting;  // byte i holds i + 1: every byte of a small volume is distinct
const PixelFormatDescriptor kASTC3x3x3{0x2D01};  // blocks span three slices

std::string SliceBytes(const VolumeData& v, ull i) {
  return std::string(v.Buffer() + i * v.BytesPerSlice(), v.BytesPerSlice());
}
std::shared_ptr<SurfaceData> R8Bitmap(ull w, ull h, ull align, int first) {
  auto s = SurfaceDataBitmap::Create(w, h, formats::R8, align);
  for (ull y = 0; y < h; ++y)
    for (ull x = 0; x < w; ++x) s->Buffer()[y * s->BytesPerRow() + x] = static_cast<char>(first + y * w + x);
  return s;
}

// The built-in flip engine, except that the second in-place call is refused.
struct FailingFlip : FlipEngine {
  int calls = 0;
  FlipEngine* base = DefaultFlipEngine();
  bool FlipVertical(const SurfaceData* s, SurfaceData* d) override { return base->FlipVertical(s, d); }
  bool FlipVertical(SurfaceData* d) override { return ++calls != 2 && base->FlipVertical(d); }
  bool FlipHorizontal(const SurfaceData* s, SurfaceData* d) override { return base->FlipHorizontal(s, d); }
  bool FlipHorizontal(SurfaceData* d) override { return ++calls != 2 && base->FlipHorizontal(d); }
  ~FailingFlip() override { SetFlipEngine(nullptr); }
};

TEST(VolumeData, CreateFromBufferGeometry) {
  // format, width, height, depth, alignment, bytes per row, per slice, in all
  const std::tuple<PixelFormatDescriptor, ull, ull, ull, ull, ull, ull, ull> cases[] = {
      {formats::A8R8G8B8, 4, 4, 3, 0, 16, 64, 192}, {formats::R8, 3, 2, 2, 2, 4, 8, 16},
      {formats::R8, 3, 2, 2, 0, 3, 6, 12},
      {formats::DXT1, 5, 5, 2, 2, 0, 32, 64},  // 2 x 2 blocks of 8 bytes per slice, no row alignment
      {kASTC3x3x3, 6, 3, 3, 0, 0, 0, 32},      // two 3 x 3 x 3 blocks of 16 bytes, no slices
  };
  for (const auto& [f, w, h, d, align, bpr, bps, size] : cases) {
    SCOPED_TRACE(ToString(f) + " align " + std::to_string(align));
    const ull start = 8;
    auto buf = Counting(start + size);
    const auto v = VolumeData::Create(buf, start, f, w, h, d, align);
    ASSERT_TRUE(v);
    EXPECT_EQ(std::make_tuple(v->BytesPerRow(), v->BytesPerSlice(), v->Size(), v->Depth(), v->IsSliceable()),
              std::make_tuple(bpr, bps, size, d, bps != 0));
    EXPECT_EQ(std::make_pair(v->Buffer(), v->SharedBuffer()), std::make_pair(buf.get() + start, buf));
    const VolumeData copy(*v);  // shares the buffer and the very slice objects
    for (ull i = 0; i < d && bps; ++i) {
      const auto s = v->GetSlice(i);
      ASSERT_TRUE(s);
      EXPECT_EQ(copy.GetSlice(i), s);
      EXPECT_EQ(std::make_tuple(s->SharedBuffer(), s->Start(), s->Size(), s->Width(), s->Height(), s->Format()),
                std::make_tuple(buf, start + i * bps, bps, w, h, f));
      s->Buffer()[1] = 'x';  // a write through the view is a write to the volume
      EXPECT_EQ(v->Buffer()[i * bps + 1], 'x');
    }
    EXPECT_EQ(v->GetSlice(bps ? d : 0), SurfaceDataSharedMemory::Null);
    if (bps) continue;
    EXPECT_FALSE(v->FlipHorizontal() || v->FlipVertical() || v->FlipDepthical());
    EXPECT_FALSE(v->ConvertCopy(formats::A8R8G8B8) || v->RotateCopy(0));
    EXPECT_EQ(std::string(buf.get(), start + size), std::string(Counting(start + size).get(), start + size));
  }
}

TEST(VolumeData, CreateFromSurfacesCopiesRowsIntoFourByteRows) {
  // Source rows of 3, 4 and 8 bytes all land in 4-byte rows.
  const std::vector<std::shared_ptr<SurfaceData>> in = {R8Bitmap(3, 2, 0, 10), R8Bitmap(3, 2, 2, 20),
                                                        R8Bitmap(3, 2, 3, 30)};
  const auto v = VolumeData::Create(in);
  ASSERT_TRUE(v);
  EXPECT_EQ(std::make_tuple(v->BytesPerRow(), v->BytesPerSlice(), v->Size(), v->Start(), v->Depth(), v->Format()),
            std::make_tuple(4ull, 8ull, 24ull, 0ull, 3ull, formats::R8));
  for (ull i = 0; i < 3; ++i) {
    for (ull y = 0; y < 2; ++y)
      EXPECT_EQ(std::string(v->Buffer() + i * 8 + y * 4, 3), std::string(in[i]->Buffer() + y * in[i]->BytesPerRow(), 3))
          << "slice " << i << " row " << y;
    EXPECT_EQ(v->GetSlice(i)->Buffer(), v->Buffer() + i * 8);
  }
  in[0]->Buffer()[0] = 99;
  EXPECT_EQ(v->Buffer()[0], 10) << "the inputs are copied, not shared";

  EXPECT_EQ(VolumeData::Create(std::vector<std::shared_ptr<SurfaceData>>{}), VolumeData::Null);
  const std::shared_ptr<SurfaceData> others[] = {R8Bitmap(2, 2, 2, 0), R8Bitmap(3, 3, 2, 0),
                                                 SurfaceDataBitmap::Create(3, 2, formats::A8, 2)};
  for (const auto& other : others) EXPECT_FALSE(VolumeData::Create({in[0], in[1], other}));
}

TEST(VolumeData, SliceOutlivesVolumeAndBuffer) {
  for (int order = 0; order < 3; ++order) {
    SCOPED_TRACE(order);
    auto buf = Counting(24);
    auto v = order < 2 ? VolumeData::Create(buf, 0, formats::R8, 4, 2, 3, 2)
                       : VolumeData::Create({R8Bitmap(4, 2, 2, 1), R8Bitmap(4, 2, 2, 9), R8Bitmap(4, 2, 2, 17)});
    auto slice = v->GetSlice(2);
    if (order == 0) v.reset();
    buf.reset();
    v.reset();
    EXPECT_EQ(slice->SharedBuffer().use_count(), 1) << "the other views went with the volume";
    EXPECT_EQ(slice->Buffer()[7], 24);
    slice->Buffer()[0] = 0;
    EXPECT_TRUE(slice->FlipVertical());
    EXPECT_EQ(slice->Buffer()[4], 0);
  }
}

TEST(VolumeData, FlipDepthicalSwapsWholeSlices) {
  for (ull depth = 1; depth <= 4; ++depth) {
    SCOPED_TRACE(depth);
    const ull n = 2 + depth * 8 + 2;  // two guard bytes each side
    auto buf = Counting(n);
    const std::string before(buf.get(), n);
    const auto v = VolumeData::Create(buf, 2, formats::R8, 4, 2, depth, 0);
    ASSERT_TRUE(v->FlipDepthical());
    for (ull i = 0; i < depth; ++i) EXPECT_EQ(SliceBytes(*v, i), before.substr(2 + (depth - 1 - i) * 8, 8));
    EXPECT_EQ(std::string(buf.get(), 2) + std::string(buf.get() + n - 2, 2),
              before.substr(0, 2) + before.substr(n - 2));
  }
}

TEST(VolumeData, PlaneFlipsGoSliceBySlice) {
  const auto v = VolumeData::Create(Counting(24), 0, formats::R8, 4, 2, 3, 2);
  ASSERT_TRUE(v->FlipHorizontal());
  EXPECT_EQ(SliceBytes(*v, 1), "\x0c\x0b\x0a\x09\x10\x0f\x0e\x0d");
  ASSERT_TRUE(v->FlipVertical());
  EXPECT_EQ(SliceBytes(*v, 2), "\x18\x17\x16\x15\x14\x13\x12\x11");

  // The first refusal stops the loop; slices before it stay flipped.
  const std::string s0 = SliceBytes(*v, 0), s1 = SliceBytes(*v, 1), s2 = SliceBytes(*v, 2);
  FailingFlip engine;
  SetFlipEngine(&engine);
  EXPECT_FALSE(v->FlipHorizontal());
  EXPECT_EQ(engine.calls, 2);
  EXPECT_NE(SliceBytes(*v, 0), s0);
  EXPECT_EQ(SliceBytes(*v, 1) + SliceBytes(*v, 2), s1 + s2);
}

TEST(VolumeData, RotateAndConvertCopies) {
  auto buf = Counting(24);
  const auto v = VolumeData::Create(buf, 0, formats::R8, 4, 2, 3, 0);
  const auto r = v->RotateCopy(90);
  ASSERT_TRUE(r);
  EXPECT_EQ(std::make_tuple(r->Width(), r->Height(), r->Depth(), r->BytesPerRow()),
            std::make_tuple(2ull, 4ull, 3ull, 4ull));
  EXPECT_NE(r->SharedBuffer(), buf);
  // Clockwise: source pixel (x, y) lands at (h - 1 - y, x) of the same slice.
  for (ull y = 0; y < 2; ++y)
    for (ull x = 0; x < 4; ++x) EXPECT_EQ(r->Buffer()[r->BytesPerSlice() + x * 4 + 1 - y], v->Buffer()[8 + y * 4 + x]);
  EXPECT_EQ(v->RotateCopy(-90)->Width(), 2u);
  EXPECT_FALSE(v->RotateCopy(45));

  const auto c = v->ConvertCopy(formats::A8R8G8B8);
  ASSERT_TRUE(c);
  EXPECT_EQ(std::make_tuple(c->Format(), c->BytesPerRow(), c->Depth()),
            std::make_tuple(formats::A8R8G8B8, 16ull, 3ull));
  EXPECT_EQ(c->GetSlice(2)->Buffer(), c->Buffer() + 2 * 32);
  EXPECT_FALSE(v->ConvertCopy(nullptr));
  EXPECT_FALSE(VolumeData::Create(Counting(64), 0, formats::DXT1, 8, 8, 1, 0)->ConvertCopy(formats::A8R8G8B8));
  EXPECT_FALSE(v->RescaleCopy(4, 2, 3, FilterType::Box) || v->RescaleCopy(2, 1, 1, FilterType::Point));
  EXPECT_EQ(std::string(buf.get(), 24), std::string(Counting(24).get(), 24));
}

}  // namespace
}  // namespace lumo::image
