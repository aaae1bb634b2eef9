// Mip chains: level counting, completion and trimming, origin bookkeeping of
// the flips, face extraction, and which operations share or copy levels.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lumo/image/engines.h"
#include "lumo/image/formats.h"
#include "lumo/image/pyramid.h"
#include "support/log_capture.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;
using Levels = std::vector<std::shared_ptr<Mipmap>>;
using SizeList = std::vector<std::pair<ull, ull>>;
constexpr auto kTop = ImageOrigin::TopDown;
constexpr auto kBottom = ImageOrigin::BottomUp;

// Byte i of the buffer holds i + 1 (short name: the tables below build many).
std::shared_ptr<Surface> S(ull w, ull h, PixelFormatDescriptor f = formats::R8) {
  return testing::CountingSurface(w, h, f);
}
std::shared_ptr<Volume> V(ull w, ull h, ull d) { return std::make_shared<Volume>(std::vector(d, S(w, h))); }
std::shared_ptr<Cube> C(ull n) { return Cube::Create(S(n, n), S(n, n), S(n, n), S(n, n), S(n, n), S(n, n)); }
SizeList Sizes(const Pyramid& p) {
  SizeList out;
  for (ull i = 0; i < p.LevelsCurrent(); ++i) {
    const auto m = p.GetMipmap(i);
    out.emplace_back(m ? m->Width() : 0, m ? m->Height() : 0);
  }
  return out;
}
std::string Bytes(const std::shared_ptr<Mipmap>& m, ull n) { return std::string(m->GetSurface()->Buffer(), n); }
std::shared_ptr<SurfaceData> Palette() { return SurfaceDataBitmap::Create(4, 1, formats::A8R8G8B8, 2); }

TEST(Pyramid, LevelZeroDescribesThePyramid) {
  for (const auto& [base, complete] : std::vector<std::pair<std::shared_ptr<Mipmap>, ull>>{
           {S(256, 64), 9}, {S(1, 1), 1}, {S(5, 3), 3}, {S(16, 16), 5}, {S(1, 300), 9}, {V(2, 2, 8), 4}}) {
    const auto p = Pyramid::Make(base, kBottom);
    EXPECT_EQ(std::make_tuple(p->LevelsComplete(), p->LevelsCurrent(), p->IsComplete(), p->Origin()),
              std::make_tuple(complete, 1ull, complete == 1, kBottom))
        << base->Width() << "x" << base->Height();
  }
  const auto arr = std::make_shared<SurfaceArray>(std::vector(3, S(4, 2)));
  const auto p = Pyramid::Make(Levels{arr, S(2, 1, formats::A8R8G8B8), V(1, 1, 1)}, kTop);
  EXPECT_EQ(
      std::make_tuple(p->Type(), p->IsArray(), p->Width(), p->Height(), p->Depth(), p->ArrayLength(), p->Format()),
      std::make_tuple(MipmapType::SurfaceArray, true, 4ull, 2ull, 1ull, 3ull, formats::R8));
  EXPECT_EQ(p->GetBaseMipmap(), arr);
  EXPECT_EQ(p->GetSurface(0, 2), arr->GetSurface(2));
  EXPECT_EQ(p->GetSurface(1), p->GetMipmap(1));
  EXPECT_EQ(p->GetSurface(7, 0), Surface::Null);
  EXPECT_EQ(p->GetMipmap(3), Mipmap::Null);

  const auto empty = Pyramid::Make(Levels{}, kTop);
  EXPECT_EQ(std::make_tuple(empty->LevelsComplete(), empty->IsComplete(), empty->Format()),
            std::make_tuple(0ull, true, PixelFormatDescriptor{0}));
  EXPECT_EQ(empty->GetSurface(0), Surface::Null);
  EXPECT_EQ(Pyramid::Make(Mipmap::Null, kTop)->Format(), PixelFormatDescriptor{0});
}

TEST(Pyramid, MakeCompleteHalvesAndTrims) {
  const auto base = S(16, 16);
  const auto p = Pyramid::Make(base, kBottom);
  ASSERT_TRUE(p->MakeComplete(FilterType::Box));
  EXPECT_EQ(Sizes(*p), (SizeList{{16, 16}, {8, 8}, {4, 4}, {2, 2}, {1, 1}}));
  EXPECT_EQ(p->GetMipmap(0), base);
  EXPECT_EQ(p->Origin(), kBottom);
  const auto l2 = p->GetMipmap(2);
  EXPECT_TRUE(p->MakeComplete(FilterType::Box));
  EXPECT_EQ(p->GetMipmap(2), l2) << "a complete chain is left alone";

  const Levels seven = {S(16, 16), S(8, 8), S(4, 4), S(2, 2), S(1, 1), S(1, 1), S(1, 1)};
  const auto q = Pyramid::Make(seven, kTop);
  ASSERT_TRUE(q->MakeComplete(FilterType::Box));
  ASSERT_EQ(q->LevelsCurrent(), 5u);
  for (ull i = 0; i < 5; ++i) EXPECT_EQ(q->GetMipmap(i), seven[i]);
}

TEST(Pyramid, MakeCompleteFillsHolesFromThePreviousLevel) {
  // A present level is kept even when its size breaks the halving rule, and is halved in turn.
  const Levels gap = {S(8, 8), Mipmap::Null, S(3, 3)};
  const auto g = Pyramid::Make(gap, kTop);
  ASSERT_TRUE(g->MakeComplete(FilterType::Point));
  EXPECT_EQ(Sizes(*g), (SizeList{{8, 8}, {4, 4}, {3, 3}, {1, 1}}));
  EXPECT_EQ(g->GetMipmap(0), gap[0]);
  EXPECT_EQ(g->GetMipmap(2), gap[2]);
  // Point sampling 8 -> 4 takes the odd samples: bytes 10, 12 / 26, 28 of level 0.
  const auto l1 = g->GetSurface(1);
  EXPECT_EQ(std::string(l1->Buffer(), 2) + std::string(l1->Buffer() + l1->BytesPerRow(), 2), "\x0a\x0c\x1a\x1c");
  // As many levels as a full chain count as complete, hole or not.
  const auto h = Pyramid::Make(Levels{S(4, 4), Mipmap::Null, S(1, 1)}, kTop);
  EXPECT_TRUE(h->MakeComplete(FilterType::Box));
  EXPECT_FALSE(h->GetMipmap(1));
  // Volumes have no smaller levels, but a chain that is already complete is fine.
  EXPECT_TRUE(Pyramid::Make(Levels{V(2, 2, 2), V(1, 1, 1)}, kTop)->MakeComplete(FilterType::Box));
}

TEST(Pyramid, MakeCompleteFailureChangesNothing) {
  testing::LogCapture quiet;  // the rescale engine's expected refusals
  for (const Levels& levels :
       {Levels{Mipmap::Null}, Levels{Mipmap::Null, S(4, 4), S(2, 2)}, Levels{S(8, 8, formats::DXT1)},
        Levels{S(8, 8), S(4, 4, formats::DXT1)}, Levels{V(4, 4, 4)}}) {
    const auto p = Pyramid::Make(levels, kTop);
    EXPECT_FALSE(p->MakeComplete(FilterType::Box)) << levels.size() << " levels";
    ASSERT_EQ(p->LevelsCurrent(), levels.size());
    for (ull i = 0; i < levels.size(); ++i) EXPECT_EQ(p->GetMipmap(i), levels[i]);
  }
}

TEST(Pyramid, Skip) {
  const Levels five = {S(16, 16), S(8, 8), S(4, 4), S(2, 2), S(1, 1)};
  const auto p = Pyramid::Make(five, kTop);
  EXPECT_FALSE(p->Skip(5));
  EXPECT_TRUE(p->Skip(0));
  EXPECT_TRUE(p->Skip(2));
  EXPECT_FALSE(p->Skip(3));
  EXPECT_EQ(Levels({p->GetMipmap(0), p->GetMipmap(1), p->GetMipmap(2)}), Levels(five.begin() + 2, five.end()));
  EXPECT_EQ(p->LevelsCurrent(), 3u);
  EXPECT_FALSE(Pyramid::Make(Levels{}, kTop)->Skip(0));
}

TEST(Pyramid, FlipVerticalTogglesTheOriginOnlyWhenEveryLevelFlips) {
  const auto p = Pyramid::Make(Levels{S(4, 2), S(2, 1)}, kTop);
  ASSERT_TRUE(p->FlipVertical());
  EXPECT_EQ(p->Origin(), kBottom);
  EXPECT_EQ(Bytes(p->GetMipmap(0), 8), "\x05\x06\x07\x08\x01\x02\x03\x04");
  ASSERT_TRUE(p->FlipVertical());
  EXPECT_EQ(p->Origin(), kTop);
  p->SetOrigin(static_cast<ImageOrigin>(7));
  ASSERT_TRUE(p->FlipVertical());
  EXPECT_EQ(p->Origin(), static_cast<ImageOrigin>(7));
  // Blocks cannot be flipped; the other levels still are, and the origin stays.
  const auto c = Pyramid::Make(Levels{S(4, 2), S(4, 4, formats::DXT1), S(4, 2)}, kBottom);
  EXPECT_FALSE(c->FlipVertical());
  EXPECT_EQ(c->Origin(), kBottom);
  EXPECT_EQ(Bytes(c->GetMipmap(0), 1) + Bytes(c->GetMipmap(2), 1), "\x05\x05");
}

TEST(Pyramid, HorizontalAndDepthFlipsTryEveryLevel) {
  // 4-bit pixels cannot be swapped as bytes; the next level is still flipped.
  const auto p = Pyramid::Make(Levels{S(4, 2, formats::A4), S(3, 1)}, kTop);
  EXPECT_FALSE(p->FlipHorizontal());
  EXPECT_EQ(Bytes(p->GetMipmap(1), 3), "\x03\x02\x01");
  EXPECT_FALSE(p->FlipDepthical()) << "surfaces have no depth";
  const auto vol = V(4, 1, 3);
  vol->GetSurface(0)->Buffer()[0] = 'a';
  EXPECT_TRUE(Pyramid::Make(Levels{vol, V(2, 1, 1)}, kTop)->FlipDepthical());
  EXPECT_EQ(vol->GetSurface(0)->Buffer()[0], 1);
  EXPECT_EQ(vol->GetSurface(2)->Buffer()[0], 'a');
  const auto empty = Pyramid::Make(Levels{}, kTop);
  EXPECT_TRUE(empty->FlipHorizontal() && empty->FlipVertical() && empty->FlipDepthical() &&
              empty->Reinterpret(formats::R8));
}

TEST(Pyramid, CopiesShareLevels) {
  const auto arr = std::make_shared<SurfaceArray>(std::vector(3, S(4, 1)));
  const auto p = Pyramid::Make(Levels{arr, S(2, 1)}, kBottom);
  p->SetPalette(Palette());
  const auto copy = std::make_shared<Pyramid>(*p);
  EXPECT_EQ(std::make_tuple(copy->GetMipmap(0), copy->GetPalette(), copy->Origin()),
            std::make_tuple(std::shared_ptr<Mipmap>(arr), p->GetPalette(), kBottom));
  // An in-place flip through one pyramid shows through the other; Skip does not.
  ASSERT_TRUE(copy->FlipHorizontal());
  EXPECT_EQ(p->GetSurface(0, 1)->Buffer()[0], 4);
  ASSERT_TRUE(copy->Skip(1));
  EXPECT_EQ(p->LevelsCurrent(), 2u);
}

TEST(Pyramid, ReinterpretAndPowerOfTwoStopAtTheFirstFailure) {
  const auto p =
      Pyramid::Make(Levels{S(1, 1, formats::A8R8G8B8), S(1, 1, formats::R8G8B8), S(1, 1, formats::A8R8G8B8)}, kTop);
  p->SetPalette(Palette());
  EXPECT_FALSE(p->Reinterpret(formats::R32f));
  EXPECT_EQ(std::make_tuple(p->GetMipmap(0)->Format(), p->GetMipmap(1)->Format(), p->GetMipmap(2)->Format(),
                            p->GetPalette()->Format()),
            std::make_tuple(formats::R32f, formats::R8G8B8, formats::A8R8G8B8, formats::A8R8G8B8));

  const auto pot = S(4, 4);
  const auto pot_data = pot->Data();
  const auto q = Pyramid::Make(Levels{S(3, 3), pot, Mipmap::Null, S(5, 1)}, kTop);
  EXPECT_TRUE(q->MakeSizePowerOfTwo(FilterType::Box));
  EXPECT_EQ(Sizes(*q), (SizeList{{4, 4}, {4, 4}, {0, 0}, {8, 1}}));
  EXPECT_EQ(pot->Data(), pot_data);
  // A volume cannot be resized; the level after it is not visited.
  const auto after = S(3, 3);
  EXPECT_FALSE(Pyramid::Make(Levels{V(3, 3, 3), after}, kTop)->MakeSizePowerOfTwo(FilterType::Box));
  EXPECT_EQ(after->Width(), 3u);
}

TEST(Pyramid, ConvertAndRotateCopiesKeepTheOriginOnly) {
  const auto p = Pyramid::Make(Levels{S(4, 2), S(2, 1)}, kBottom);
  p->SetPalette(Palette());
  const auto c = p->ConvertCopy(formats::A8R8G8B8);
  const auto r = p->RotateCopy(90);
  ASSERT_TRUE(c && r);
  EXPECT_EQ(std::make_tuple(c->LevelsCurrent(), c->GetMipmap(1)->Format(), c->Origin(), c->GetPalette()),
            std::make_tuple(2ull, formats::A8R8G8B8, kBottom, SurfaceData::Null));
  EXPECT_NE(c->GetMipmap(0), p->GetMipmap(0));
  EXPECT_EQ(p->Format(), formats::R8);
  EXPECT_EQ(Sizes(*r), (SizeList{{2, 4}, {1, 2}}));
  EXPECT_EQ(std::make_tuple(r->Origin(), r->GetPalette()), std::make_tuple(kBottom, SurfaceData::Null));
  EXPECT_EQ(p->RotateCopy(45), Pyramid::Null);
  EXPECT_EQ(Pyramid::Make(Levels{S(4, 2), S(4, 4, formats::DXT1)}, kTop)->ConvertCopy(formats::A8R8G8B8),
            Pyramid::Null);
}

TEST(Pyramid, FaceSharesOneFaceOfEveryLevel) {
  const auto c0 = C(4), c1 = C(2);
  const auto p = Pyramid::Make(Levels{c0, c1, Mipmap::Null}, kBottom);
  p->SetPalette(Palette());
  const auto f = p->Face(CubeFace::NegativeY);
  ASSERT_TRUE(f);
  EXPECT_EQ(Levels({f->GetMipmap(0), f->GetMipmap(1), f->GetMipmap(2)}),
            Levels({c0->GetFace(CubeFace::NegativeY), c1->GetFace(CubeFace::NegativeY), nullptr}));
  EXPECT_EQ(std::make_tuple(f->LevelsCurrent(), f->Type(), f->Origin(), f->GetPalette()),
            std::make_tuple(3ull, MipmapType::Surface, kTop, SurfaceData::Null));
  EXPECT_EQ(Pyramid::Make(S(4, 4), kTop)->Face(CubeFace::PositiveX), Pyramid::Null);
  EXPECT_EQ(Pyramid::Make(V(2, 2, 2), kTop)->Face(CubeFace::PositiveX), Pyramid::Null);
}

}  // namespace
}  // namespace lumo::image
