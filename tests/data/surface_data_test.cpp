// Surface storage: geometry of the three storage classes, relabelling rules,
// and buffer sharing and lifetime.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/formats.h"
#include "lumo/image/surface_data.h"
#include "support/descriptors.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;

using testing::D;

const PixelFormatDescriptor kR8 = D(0x20200), kA1 = D(0x4500), kA4 = D(0x10500), kR16 = D(0x40200),
                            kR32f = D(0x280200), kR8G8B8 = D(0x204080C20200), kR16G16B16 = D(0x404100C40200),
                            kA8R8G8B8 = D(0x810203080820500), kA32f4 = D(0xA00A803A01280500), kDXT1 = D(0x101),
                            kDXT1A1 = D(0x201), kDXT5 = D(0x601), kPVRTC2 = D(0x701), kASTC4x4 = D(0x1F01),
                            kASTC5x4 = D(0x2001), kSASTC5x4 = D(0x2003), kBadKind = D(0x22F00);

// Exposes the protected buffer setter, as a host's own naked-memory class would.
class Naked : public SurfaceDataNakedMemory {
 public:
  using SurfaceDataNakedMemory::SurfaceDataNakedMemory;
  using SurfaceDataNakedMemory::SetBuffer;
};

std::shared_ptr<char> NewBuffer(size_t n) {
  std::shared_ptr<char> b(new char[n], array_deleter());
  std::memset(b.get(), 0, n);
  return b;
}

TEST(SurfaceData, BitmapCreateGeometry) {
  // format, width, height, alignment, created?, bytes per row, size
  const std::tuple<PixelFormatDescriptor, ull, ull, ull, bool, ull, ull> cases[] = {
      {kR8, 3, 2, 2, true, 4, 8},        {kR8, 3, 2, 0, true, 3, 6},        {kR8G8B8, 3, 2, 2, true, 12, 24},
      {kR8G8B8, 3, 2, 3, true, 16, 32},  {kA1, 10, 1, 0, true, 2, 2},       {kA4, 3, 2, 0, true, 2, 4},
      {kR8, 3, 0, 0, true, 3, 0},  // no rows is fine
      {kR8, 0, 4, 2, false, 0, 0},       {D(0), 4, 4, 2, false, 0, 0},      {kBadKind, 4, 4, 2, false, 0, 0},
      // compressed: whole blocks, alignment ignored, bytes per row = size / height
      {kDXT1, 5, 3, 2, true, 5, 16},     {kDXT1, 8, 8, 0, true, 4, 32},     {kDXT1, 0, 4, 0, true, 2, 8},
      {kASTC5x4, 7, 6, 2, true, 10, 64},
      {kPVRTC2, 1, 1, 0, true, 32, 32},  // minimum 16 x 8 pixels
      {kDXT1, 4, 0, 0, false, 0, 0},     // nothing to divide by
  };
  for (const auto& [f, w, h, align, ok, bpr, size] : cases) {
    SCOPED_TRACE(::testing::Message() << ToString(f) << " " << w << "x" << h << " a" << align);
    const auto s = SurfaceDataBitmap::Create(w, h, f, align);
    ASSERT_EQ(static_cast<bool>(s), ok);
    if (!s) continue;
    EXPECT_EQ(std::make_tuple(s->BytesPerRow(), s->Size(), s->Width(), s->Height(), s->IsCompressed()),
              std::make_tuple(bpr, size, w, h, IsCompressed(f)));
    if (size) {
      std::memset(s->Buffer(), 0x5C, s->Size());  // the whole buffer is writable
      EXPECT_EQ(static_cast<const SurfaceData&>(*s).Buffer(), s->Buffer());
    }
  }
}

TEST(SurfaceData, SharedAndNakedGeometry) {
  auto buf = NewBuffer(64);
  // format, width, height, alignment, naked row size given; shared row size and size; naked size and row size
  const std::tuple<PixelFormatDescriptor, ull, ull, ull, ull, ull, ull, ull, ull> cases[] = {
      {kR8G8B8, 3, 2, 2, 10, 12, 24, 20, 10},  {kR8G8B8, 3, 2, 0, 0, 9, 18, 0, 0},
      {kDXT1, 5, 3, 2, 99, 0, 16, 16, 0},      // compressed rows report 0
      {kBadKind, 4, 4, 2, 4, 0, 0, 16, 4},     // nothing is validated
  };
  for (const auto& [f, w, h, align, naked_bpr, shared_bpr, shared_size, naked_size, naked_reported_bpr] : cases) {
    SCOPED_TRACE(ToString(f));
    const auto s = SurfaceDataSharedMemory::Create(buf, 5, f, w, h, align);
    ASSERT_TRUE(s);
    EXPECT_EQ(std::make_tuple(s->BytesPerRow(), s->Size(), s->Width(), s->Height(), s->Buffer()),
              std::make_tuple(shared_bpr, shared_size, w, h, buf.get() + 5));
    Naked n(f, w, h, naked_bpr);
    EXPECT_EQ(std::make_tuple(n.BytesPerRow(), n.Size(), n.Width(), n.Buffer()),
              std::make_tuple(naked_reported_bpr, naked_size, w, nullptr));
    n.SetBuffer(buf.get() + 1);
    EXPECT_EQ(n.Buffer(), buf.get() + 1);
  }
}

// Equal bits per pixel, compared as cross-multiplied fractions.
TEST(SurfaceData, ReinterpretRuleInAllThreeClasses) {
  const std::tuple<PixelFormatDescriptor, PixelFormatDescriptor, bool> cases[] = {
      {kA8R8G8B8, kR32f, true},   {kA8R8G8B8, kR16, false},     {kA8R8G8B8, kDXT5, false},
      {kDXT1, kDXT1A1, true},     {kDXT1, kA4, true},           {kDXT1, kDXT5, false},
      {kASTC4x4, kR8, true},      {kASTC5x4, kSASTC5x4, true},  {kASTC5x4, kA32f4, false},
      {kA32f4, kASTC5x4, false},  {kASTC5x4, kASTC4x4, false},  {kR8G8B8, kR16G16B16, false},
      {kR8, PixelFormatDescriptor{}, false},  // no pixel size: nothing matches it
  };
  auto buf = NewBuffer(512);
  const ull w = 8, h = 4;
  for (const auto& [from, to, ok] : cases) {
    SCOPED_TRACE(ToString(from) + " as " + ToString(to));
    auto bitmap = SurfaceDataBitmap::Create(w, h, from, 0);
    ASSERT_TRUE(bitmap);
    auto shared = SurfaceDataSharedMemory::Create(buf, 0, from, w, h, 0);
    Naked naked(from, w, h, BytesPerRow(from, w, 0));
    naked.SetBuffer(buf.get());
    for (SurfaceData* s : std::vector<SurfaceData*>{bitmap.get(), shared.get(), &naked}) {
      const auto before = std::make_tuple(s->Size(), s->BytesPerRow(), s->Width(), s->Height(), s->Buffer());
      EXPECT_EQ(s->Reinterpret(to), ok);
      EXPECT_EQ(s->Format(), ok ? to : from);
      EXPECT_EQ(std::make_tuple(s->Size(), s->BytesPerRow(), s->Width(), s->Height(), s->Buffer()), before);
    }
  }
}

TEST(SurfaceData, ReinterpretCopyKeepsBytesAndRecountsWidth) {
  // from, width, height, to, the copy's width
  const std::tuple<PixelFormatDescriptor, ull, ull, PixelFormatDescriptor, ull> cases[] = {
      {kA8R8G8B8, 4, 4, kR8, 16},        // 16-byte rows hold 16 bytes
      {kA8R8G8B8, 4, 4, kR32f, 4},       // same bits: width kept
      {kA8R8G8B8, 4, 4, kR16G16B16, 2},  // 128 / 48, truncated
      {kA8R8G8B8, 4, 4, kASTC5x4, 20},   // 20 * 16 * 8 / 128
      {kR8, 5, 2, kA4, 10},              {kDXT1, 5, 3, kDXT1A1, 5},
      {kDXT1, 5, 3, kDXT5, 0},  // compressed views have no row size
  };
  auto buf = NewBuffer(256);
  for (const auto& [from, w, h, to, width] : cases) {
    SCOPED_TRACE(ToString(from) + " as " + ToString(to));
    const auto s = SurfaceDataSharedMemory::Create(buf, 8, from, w, h, 0);
    const auto r = s->ReinterpretCopy(to);
    ASSERT_TRUE(r);
    EXPECT_EQ(std::make_tuple(r->Format(), r->Width(), r->Height(), r->BytesPerRow(), r->Size(), r->Buffer()),
              std::make_tuple(to, width, h, s->BytesPerRow(), s->Size(), s->Buffer()));
    EXPECT_EQ(r->SharedBuffer(), buf) << "the copy shares the bytes and keeps them alive";
    EXPECT_EQ(std::make_pair(s->Format(), s->Width()), std::make_pair(from, w));
  }
}

TEST(SurfaceData, IsSizePowerOfTwo) {
  const std::tuple<ull, ull, bool> cases[] = {{0, 8, true},    {6, 8, false}, {1, 1, true},  {8, 6, false},
                                              {1024, 2, true}, {0, 0, true},  {3, 4, false}, {1ull << 40, 1, true}};
  auto buf = NewBuffer(1);
  for (const auto& [w, h, pow2] : cases) {
    EXPECT_EQ(SurfaceDataSharedMemory::Create(buf, 0, kR8, w, h, 0)->IsSizePowerOfTwo(), pow2) << w << "x" << h;
    EXPECT_EQ(Naked(kR8, w, h, 0).IsSizePowerOfTwo(), pow2) << w << "x" << h;
  }
}

TEST(SurfaceData, ReplaceBufferMovesTheView) {
  auto first = NewBuffer(32), second = NewBuffer(32);
  const auto s = SurfaceDataSharedMemory::Create(first, 0, kR8G8B8, 3, 2, 2);
  s->ReplaceBuffer(second, 3);
  EXPECT_EQ(s->Buffer(), second.get() + 3);
  EXPECT_EQ(first.use_count(), 1);
}

TEST(SurfaceData, CopyingABitmapCopiesItsPixels) {
  const auto a = SurfaceDataBitmap::Create(3, 2, kR8G8B8, 2);
  ASSERT_TRUE(a);
  for (ull i = 0; i < a->Size(); ++i) a->Buffer()[i] = static_cast<char>(i + 1);
  SurfaceDataBitmap copy(*a);
  const auto b = SurfaceDataBitmap::Create(1, 1, kDXT1, 0);
  *b = *a;  // replaces b's own buffer; the sanitizer build catches a leak or double free
  for (const SurfaceDataBitmap* c : {&copy, b.get()}) {
    EXPECT_NE(c->Buffer(), a->Buffer());
    EXPECT_EQ(std::make_tuple(c->Size(), c->BytesPerRow(), c->Width(), c->Format()),
              std::make_tuple(24ull, 12ull, 3ull, kR8G8B8));
    EXPECT_EQ(std::string(c->Buffer(), c->Size()), std::string(a->Buffer(), a->Size()));
  }
  copy.Buffer()[0] = 99;
  EXPECT_EQ(a->Buffer()[0], 1);
  *b = *b;
  EXPECT_EQ(b->Buffer()[23], 24);
}

}  // namespace
}  // namespace lumo::image
