// The four mip level kinds: element counts, layers as views of one volume,
// lifetimes, and the per-kind in-place operations.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/engines.h"
#include "lumo/image/formats.h"
#include "lumo/image/mipmaps.h"
#include "lumo/log/log.h"
#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;
using Faces = std::array<std::shared_ptr<Surface>, 6>;
constexpr auto kBox = FilterType::Box;
const PixelFormatDescriptor kASTC3x3x3{0x2D01};
using testing::CountingSurface;
using testing::LogCapture;

// Volume with 4-byte rows (for the formats used here); byte i holds i + 1.
std::shared_ptr<VolumeData> MakeVolume(ull w, ull h, ull d, PixelFormatDescriptor f = formats::R8) {
  return VolumeData::Create(testing::Counting(BytesTotal(f, w, h, d, 2)), 0, f, w, h, d, 2);
}
Faces MakeFaces(ull w, ull h) {
  Faces f;
  for (int i = 0; i < 6; ++i) f[i] = CountingSurface(w, h, formats::R8, 16 * i + 1);
  return f;
}
std::shared_ptr<Cube> MakeCube(const Faces& f) { return Cube::Create(f[0], f[1], f[2], f[3], f[4], f[5]); }
std::pair<ull, ull> Dims(const std::shared_ptr<Mipmap>& m) { return {m->Width(), m->Height()}; }
std::string Row(const std::shared_ptr<Surface>& s, ull y, ull n) {
  return std::string(s->Buffer() + y * s->BytesPerRow(), n);
}

TEST(Surface, IsItsOwnOnlyElement) {
  const auto s = CountingSurface(4, 2);
  EXPECT_EQ(s->GetSurface(0), s);
  EXPECT_EQ(s->GetSurface(1), Surface::Null);
  EXPECT_FALSE(s->IsArray() || s->FlipDepthical());
  EXPECT_EQ(Surface(*s).Data(), s->Data()) << "copies share the data";
  Surface bad(4, 4, PixelFormatDescriptor{0x22F00}, 2);
  EXPECT_FALSE(bad.Data() || bad.Reinterpret(formats::R8));
}

TEST(Surface, InPlaceOperationsReplaceTheData) {
  enum Op { kDowngrade, kPowerOfTwo, kConvert, kConvertToBlocks };
  // size, format, operation, its result, data replaced?, new size
  const std::tuple<ull, ull, PixelFormatDescriptor, Op, bool, bool, ull, ull> cases[] = {
      {1, 1, formats::R8, kDowngrade, false, false, 1, 1}, {1, 8, formats::R8, kDowngrade, true, true, 1, 4},
      {7, 3, formats::R8, kDowngrade, true, true, 3, 1},   {5, 1, formats::R8, kDowngrade, true, true, 2, 1},
      {8, 8, formats::DXT1, kDowngrade, true, false, 8, 8},  // the rescale refuses: still true, data kept
      {64, 32, formats::R8, kPowerOfTwo, false, false, 64, 32}, {60, 30, formats::R8, kPowerOfTwo, true, true, 64, 32},
      {2, 2, formats::R8, kConvert, true, true, 2, 2},     {2, 2, formats::R8, kConvertToBlocks, false, false, 2, 2},
  };
  LogCapture quiet;
  for (const auto& [w, h, f, op, ok, replaced, nw, nh] : cases) {
    SCOPED_TRACE(::testing::Message() << w << "x" << h << " op " << op);
    const auto s = CountingSurface(w, h, f);
    const auto data = s->Data();
    if (op == kDowngrade) {
      const auto copy = s->DowngradeCopy(kBox);
      ASSERT_EQ(static_cast<bool>(copy), replaced);
      EXPECT_TRUE(!copy || Dims(copy) == std::make_pair(nw, nh));
      EXPECT_EQ(s->Data(), data) << "the copy leaves the source";
    }
    EXPECT_EQ(op == kDowngrade    ? s->Downgrade(kBox)
              : op == kPowerOfTwo ? s->MakeSizePowerOfTwo(kBox)
                                  : s->Convert(op == kConvert ? formats::A8R8G8B8 : formats::DXT1),
              ok);
    EXPECT_EQ(s->Data() != data, replaced);
    EXPECT_EQ(Dims(s), std::make_pair(nw, nh));
  }
}

TEST(SurfaceArray, LayersAreViewsOfTheVolume) {
  const auto vol = MakeVolume(4, 2, 4);  // 8 bytes per slice
  const auto arr = std::make_shared<SurfaceArray>(vol);
  EXPECT_EQ(std::make_tuple(arr->ArrayLength(), arr->GetSurfaceCount(), arr->Depth(), arr->Width(), arr->Height()),
            std::make_tuple(4ull, 4ull, 1ull, 4ull, 2ull));
  const auto layer = arr->GetSurface(2);
  EXPECT_EQ(layer->Data(), vol->GetSlice(2));
  EXPECT_EQ(layer->Buffer(), vol->Buffer() + 2 * 8);
  // A flip through the layer flips the array's bytes.
  ASSERT_TRUE(layer->FlipHorizontal());
  EXPECT_EQ(std::string(vol->Buffer() + 16, 4), "\x14\x13\x12\x11");
  // Depth flips swap the bytes under layers that stay in place.
  ASSERT_TRUE(arr->FlipDepthical());
  EXPECT_EQ(arr->GetSurface(0)->Buffer()[0], 25);
}

TEST(SurfaceArray, NeedsSliceableVolumeData) {
  const auto astc = MakeVolume(6, 3, 3, kASTC3x3x3);
  const std::string msg = "Surface array must be init with sliceable volume data.";
  LogCapture log;
  const SurfaceArray a(astc), b(VolumeData::Null), none;
  EXPECT_EQ(log.Texts(log::Severity::Error), (std::vector<std::string>{msg, msg}));
  EXPECT_EQ(a.Count() + b.ArrayLength(), 0u);
  const Volume v(astc), w;
  EXPECT_EQ(log.Texts(log::Severity::Error).size(), 2u) << "volumes empty their surfaces silently";
  EXPECT_EQ(std::make_tuple(v.GetSurfaceCount(), v.IsSliceable(), v.Depth()), std::make_tuple(0ull, false, 3ull));
}

TEST(SurfaceArray, LayersOutliveEveryOwner) {
  // Drop the volume data, the array, a Volume over the same data and one layer
  // in every order; the remaining slice keeps working (the sanitizers watch).
  std::array<int, 4> order = {0, 1, 2, 3};
  do {
    auto vol = MakeVolume(4, 2, 3);
    std::shared_ptr<Mipmap> arr = std::make_shared<SurfaceArray>(vol), vobj = std::make_shared<Volume>(vol);
    auto layer = arr->GetSurface(1);
    const auto slice = vobj->GetSurface(2);
    for (int k : order) {
      if (k == 0) vol.reset();
      if (k == 1) arr.reset();
      if (k == 2) vobj.reset();
      if (k == 3) layer.reset();
      EXPECT_EQ(slice->Buffer()[1], 18);
      EXPECT_TRUE(!layer || layer->Buffer()[7] == 16);
    }
    EXPECT_TRUE(slice->FlipHorizontal());
    EXPECT_EQ(slice->Buffer()[0], 20);
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST(SurfaceArray, DowngradeInstallsAHalvedVolume) {
  const auto vol = MakeVolume(4, 4, 3);  // 16 bytes per slice
  const auto arr = std::make_shared<SurfaceArray>(vol);
  const auto old_layer = arr->GetSurface(1);
  const auto copy = arr->DowngradeCopy(FilterType::Point);
  ASSERT_TRUE(copy);
  EXPECT_EQ(std::make_tuple(copy->Type(), copy->ArrayLength(), copy->Width()),
            std::make_tuple(MipmapType::SurfaceArray, 3ull, 2ull));
  EXPECT_EQ(arr->Data(), vol);
  ASSERT_TRUE(arr->Downgrade(FilterType::Point));
  EXPECT_NE(arr->Data(), vol);
  EXPECT_EQ(std::make_tuple(arr->Width(), arr->Height(), arr->ArrayLength()), std::make_tuple(2ull, 2ull, 3ull));
  // Point sampling 4 -> 2 takes samples 1 and 3 of layer 1 (bytes 17..32).
  const auto l1 = arr->GetSurface(1);
  EXPECT_EQ(Row(l1, 0, 2) + Row(l1, 1, 2), "\x16\x18\x1e\x20");
  EXPECT_EQ(old_layer->Data(), vol->GetSlice(1)) << "a layer taken earlier keeps the old storage";

  SurfaceArray tiny(MakeVolume(1, 1, 2)), tall(MakeVolume(1, 4, 2));
  EXPECT_FALSE(tiny.Downgrade(kBox) || tiny.DowngradeCopy(kBox));
  EXPECT_TRUE(tall.Downgrade(kBox));
  EXPECT_EQ(std::make_pair(tall.Width(), tall.Height()), std::make_pair(1ull, 2ull));
}

TEST(SurfaceArray, PowerOfTwoAndFailedResizes) {
  SurfaceArray pot(MakeVolume(4, 2, 2)), npot(MakeVolume(3, 2, 2));
  const auto pot_data = pot.Data(), npot_data = npot.Data();
  EXPECT_FALSE(pot.MakeSizePowerOfTwo(kBox));
  EXPECT_EQ(pot.Data(), pot_data);
  EXPECT_TRUE(npot.MakeSizePowerOfTwo(kBox));
  EXPECT_NE(npot.Data(), npot_data);
  EXPECT_EQ(std::make_pair(npot.Width(), npot.ArrayLength()), std::make_pair(4ull, 2ull));
  // Blocks are sliceable, but the rescale engine refuses them: nothing changes.
  LogCapture quiet;
  const auto dxt = MakeVolume(6, 6, 2, formats::DXT1);
  SurfaceArray arr(dxt);
  EXPECT_FALSE(arr.Downgrade(kBox) || arr.DowngradeCopy(kBox) || arr.MakeSizePowerOfTwo(kBox));
  EXPECT_EQ(arr.Data(), dxt);
  EXPECT_EQ(arr.GetSurface(1)->Data(), dxt->GetSlice(1));
}

TEST(MipmapKinds, Reinterpret) {
  // Layers in order, stopping at the first refusal: layer 1 was converted to 24 bits.
  SurfaceArray arr(MakeVolume(2, 2, 3, formats::A8R8G8B8));
  ASSERT_TRUE(arr.GetSurface(1)->Convert(formats::R8G8B8));
  EXPECT_FALSE(arr.Reinterpret(formats::R32f));
  EXPECT_EQ(std::make_tuple(arr.GetSurface(0)->Format(), arr.GetSurface(1)->Format(), arr.GetSurface(2)->Format()),
            std::make_tuple(formats::R32f, formats::R8G8B8, formats::A8R8G8B8));
  EXPECT_TRUE(SurfaceArray().Reinterpret(formats::R8));
  EXPECT_FALSE(Volume().Reinterpret(formats::R8));
  // A volume relabels its volume data, only to a format of equal bits per pixel.
  Volume vol(MakeVolume(2, 2, 3, formats::A8R8G8B8));
  EXPECT_FALSE(vol.Reinterpret(formats::R16));
  EXPECT_EQ(vol.Data()->Format(), formats::A8R8G8B8);
  EXPECT_TRUE(vol.Reinterpret(formats::R32f));
  EXPECT_EQ(vol.Data()->Format(), formats::R32f);
}

TEST(Volume, SlicesWithoutSmallerLevels) {
  const auto data = MakeVolume(8, 8, 4);
  const auto v = std::make_shared<Volume>(data);
  EXPECT_EQ(std::make_tuple(v->Depth(), v->GetSurfaceCount(), v->IsArray()), std::make_tuple(4ull, 4ull, false));
  EXPECT_EQ(v->GetSurface(4), Surface::Null);
  EXPECT_EQ(v->GetSurface(3)->Data(), data->GetSlice(3));
  const std::string last(data->Buffer() + 192, 64);
  ASSERT_TRUE(v->FlipDepthical());
  EXPECT_EQ(std::string(v->GetSurface(0)->Buffer(), 64), last);
  for (const auto& m :
       {v, std::make_shared<Volume>(MakeVolume(1, 1, 1)), std::make_shared<Volume>(MakeVolume(3, 3, 3))})
    EXPECT_FALSE(m->Downgrade(kBox) || m->DowngradeCopy(kBox) || m->MakeSizePowerOfTwo(kBox));
  EXPECT_EQ(v->Data(), data);
}

TEST(Cube, CreateNeedsSixFaces) {
  const Faces f = MakeFaces(2, 2);
  const auto c = MakeCube(f);
  ASSERT_TRUE(c);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(c->GetFace(static_cast<CubeFace>(i)), f[i]);
    EXPECT_EQ(c->GetSurface(i), f[i]);
  }
  EXPECT_EQ(c->GetSurface(6), Surface::Null);
  LogCapture log;
  for (int i = 0; i < 6; ++i) {
    Faces g = f;
    g[i].reset();
    EXPECT_EQ(MakeCube(g), Cube::Null);
  }
  EXPECT_EQ(log.Texts(log::Severity::Error),
            std::vector<std::string>(6, "Cube must be created with six non-null surface"));
}

TEST(Cube, EveryFaceIsTriedAfterAFailure) {
  // Face 0 can be neither flipped, resized nor relabelled as 8 bits; the others still are.
  Faces f = MakeFaces(3, 1);
  f[0] = CountingSurface(4, 4, formats::DXT1);
  const auto c = MakeCube(f);
  LogCapture quiet;
  EXPECT_FALSE(c->FlipHorizontal());
  EXPECT_EQ(Row(f[5], 0, 3), "\x53\x52\x51");
  EXPECT_FALSE(c->FlipVertical());
  EXPECT_FALSE(c->MakeSizePowerOfTwo(kBox));
  EXPECT_FALSE(c->Reinterpret(formats::A8));
  for (int i = 1; i < 6; ++i)
    EXPECT_EQ(std::make_pair(f[i]->Width(), f[i]->Format()), std::make_pair(4ull, formats::A8));
  EXPECT_EQ(f[0]->Format(), formats::DXT1);
}

TEST(Cube, DowngradeReplacesFaces) {
  // A 1 x 1 face has no smaller level: it stays, the others are replaced.
  Faces mixed = MakeFaces(4, 4);
  mixed[2] = CountingSurface(1, 1);
  const auto cm = MakeCube(mixed);
  EXPECT_FALSE(cm->DowngradeCopy(kBox) || cm->Downgrade(kBox));
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(cm->GetSurface(i) == mixed[i], i == 2);
    EXPECT_EQ(cm->GetSurface(i)->Width(), i == 2 ? 1u : 2u);
    EXPECT_EQ(mixed[i]->Width(), i == 2 ? 1u : 4u) << "the old face object is left alone";
  }
  const Faces fours = MakeFaces(4, 4);
  const auto c4 = MakeCube(fours);
  const auto copy = c4->DowngradeCopy(kBox);
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->Type(), MipmapType::Cube);
  EXPECT_EQ(Dims(copy->GetSurface(5)), std::make_pair(2ull, 2ull));
  EXPECT_EQ(c4->GetSurface(5), fours[5]);
  EXPECT_TRUE(c4->Downgrade(kBox));
  EXPECT_EQ(Dims(c4->GetSurface(5)), std::make_pair(2ull, 2ull));
}

TEST(MipmapKinds, ConvertAndRotateCopiesShareNothing) {
  // The array is built from surfaces: their pixels are copied into a new volume.
  const auto src = CountingSurface(4, 2);
  Volume vol(MakeVolume(4, 2, 3));
  SurfaceArray arr(std::vector<std::shared_ptr<Surface>>(3, src));
  EXPECT_EQ(std::string(arr.GetSurface(2)->Buffer(), 8), std::string(src->Buffer(), 8));
  EXPECT_EQ(arr.GetSurface(1)->Buffer(), arr.Buffer() + 8);
  const auto cube = MakeCube(MakeFaces(4, 2));
  for (Mipmap* m : {static_cast<Mipmap*>(&vol), static_cast<Mipmap*>(&arr), static_cast<Mipmap*>(cube.get())}) {
    SCOPED_TRACE(static_cast<int>(m->Type()));
    const auto r = m->RotateCopy(90), c = m->ConvertCopy(formats::A8R8G8B8);
    ASSERT_TRUE(r && c);
    EXPECT_EQ(std::make_tuple(r->Type(), c->Type(), r->GetSurfaceCount(), c->GetSurfaceCount()),
              std::make_tuple(m->Type(), m->Type(), m->GetSurfaceCount(), m->GetSurfaceCount()));
    for (ull i = 0; i < m->GetSurfaceCount(); ++i) {
      EXPECT_EQ(Dims(r->GetSurface(i)), std::make_pair(2ull, 4ull));
      EXPECT_EQ(c->GetSurface(i)->Format(), formats::A8R8G8B8);
      EXPECT_NE(r->GetSurface(i)->Buffer(), m->GetSurface(i)->Buffer());
    }
    EXPECT_FALSE(m->RotateCopy(45));
  }
  EXPECT_EQ(Volume(MakeVolume(6, 3, 3, kASTC3x3x3)).VolumeConvertCopy(formats::A8R8G8B8), Volume::Null);
  Faces f = MakeFaces(4, 2);
  f[3] = CountingSurface(4, 4, formats::DXT1);
  EXPECT_EQ(MakeCube(f)->CubeConvertCopy(formats::A8R8G8B8), Cube::Null);
}

}  // namespace
}  // namespace lumo::image
