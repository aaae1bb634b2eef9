#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lumo/image/engines.h"
#include "lumo/image/formats.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"
#include "support/descriptors.h"
#include "support/log_capture.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;
using testing::Named;
constexpr char kPad = '\xEE';  // never a pattern byte

// A view starting at an odd offset (so rows are misaligned for block access)
// whose bytes are all kPad; Patterned then writes distinct bytes into the pixels
// only, leaving row padding as kPad.
std::shared_ptr<SurfaceData> Make(PixelFormatDescriptor f, ull w, ull h, ull alignment = 2) {
  const ull size = IsCompressed(f) ? BytesTotal(f, w, h, 0) : BytesPerRow(f, w, alignment) * h;
  std::shared_ptr<char> mem(new char[size + 1], array_deleter());
  std::fill(mem.get(), mem.get() + size + 1, kPad);
  return SurfaceDataSharedMemory::Create(mem, 1, f, w, h, alignment);
}
std::shared_ptr<SurfaceData> Patterned(PixelFormatDescriptor f, ull w, ull h, ull alignment = 2) {
  auto s = Make(f, w, h, alignment);
  const ull row = BytesPerRow(f, w, 0);  // pixel bytes of a row (sub-byte formats included)
  ull n = 0;
  for (ull y = 0; y < h; ++y)
    for (ull i = 0; i < row; ++i) s->Buffer()[y * s->BytesPerRow() + i] = static_cast<char>(1 + n++ % 199);
  return s;
}
std::vector<char> Bytes(const SurfaceData& s) { return {s.Buffer(), s.Buffer() + s.Size()}; }
ull Bpp(const SurfaceData& s) { return BytesPerPixel(s.Format(), nullptr); }
char* Px(SurfaceData& s, ull x, ull y) { return s.Buffer() + y * s.BytesPerRow() + x * Bpp(s); }
// Writes one pixel into `out`, an image of dst's bytes.
void Put(std::vector<char>& out, SurfaceData& dst, ull x, ull y, const char* pixel) {
  std::copy_n(pixel, Bpp(dst), out.begin() + (Px(dst, x, y) - dst.Buffer()));
}

// Expected destination: its present bytes, with each pixel that `from` maps
// inside the source replaced by that source pixel. Everything else, row
// padding included, stays.
using Map = std::function<std::pair<ull, ull>(ull x, ull y)>;
std::vector<char> Expect(SurfaceData& src, SurfaceData& dst, const Map& from) {
  std::vector<char> out = Bytes(dst);
  for (ull y = 0; y < dst.Height(); ++y)
    for (ull x = 0; x < dst.Width(); ++x) {
      const auto [sx, sy] = from(x, y);
      if (sx < src.Width() && sy < src.Height()) Put(out, dst, x, y, Px(src, sx, sy));
    }
  return out;
}

// Every pixel size through its dedicated or generic path, at widths that end
// inside and outside the block loops and cross several rotation tiles.
const char* const kFormats[] = {"R8", "R16", "R8G8B8", "A8R8G8B8", "R16G16B8",
                                "R16G16B16", "A16R16G16B16", "R32fG32fB32f", "A32fR32fG32fB32f"};

TEST(BuiltInEngines, PixelMappingsAreByteExactAndLeavePaddingAlone) {
  FlipEngine* flip = DefaultFlipEngine();
  const auto turn = [](int degrees) {
    return [degrees](SurfaceData* s, SurfaceData* d) { return DefaultRotateEngine()->Rotate(s, degrees, d); };
  };
  for (const char* name : kFormats) {
    for (const auto& [w, h] : std::vector<std::pair<ull, ull>>{{0, 2}, {1, 1}, {3, 2}, {7, 3}, {37, 70}}) {
      SCOPED_TRACE(std::string(name) + " " + std::to_string(w) + "x" + std::to_string(h));
      const PixelFormatDescriptor f = Named(name);
      const Map same = [](ull x, ull y) { return std::pair{x, y}; };
      const Map mirror = [&](ull x, ull y) { return std::pair{w - 1 - x, y}; };
      const Map upside_down = [&](ull x, ull y) { return std::pair{x, h - 1 - y}; };
      const Map half = [&](ull x, ull y) { return std::pair{w - 1 - x, h - 1 - y}; };
      const Map clockwise = [&](ull x, ull y) { return std::pair{y, h - 1 - x}; };
      const Map counter = [&](ull x, ull y) { return std::pair{w - 1 - y, x}; };
      struct Op {
        const char* what;
        bool in_place, turned;
        Map to;
        std::function<bool(SurfaceData*, SurfaceData*)> run;
      };
      // Copies go from tight rows into rows padded to four bytes, so the
      // whole-row copies (flipV, rotate 0) must stop at the source's row end.
      const Op ops[] = {
          {"flipH in place", true, false, mirror, [&](auto* s, auto*) { return flip->FlipHorizontal(s); }},
          {"flipV in place", true, false, upside_down, [&](auto* s, auto*) { return flip->FlipVertical(s); }},
          {"flipH", false, false, mirror, [&](auto* s, auto* d) { return flip->FlipHorizontal(s, d); }},
          {"flipV", false, false, upside_down, [&](auto* s, auto* d) { return flip->FlipVertical(s, d); }},
          {"rotate 0", false, false, same, turn(0)},           {"rotate 720", false, false, same, turn(720)},
          {"rotate 90", false, true, clockwise, turn(90)},     {"rotate 450", false, true, clockwise, turn(450)},
          {"rotate -270", false, true, clockwise, turn(-270)}, {"rotate 180", false, false, half, turn(180)},
          {"rotate -180", false, false, half, turn(-180)},     {"rotate 270", false, true, counter, turn(270)},
          {"rotate -90", false, true, counter, turn(-90)},     {"rotate -450", false, true, counter, turn(-450)},
      };
      for (const Op& op : ops) {
        auto src = Patterned(f, w, h, op.in_place ? 2 : 0);
        auto dst = op.in_place ? src : op.turned ? Make(f, h, w) : Make(f, w, h);
        const auto want = Expect(*src, op.in_place ? *Make(f, w, h) : *dst, op.to);
        ASSERT_TRUE(op.run(src.get(), dst.get())) << op.what;
        EXPECT_EQ(Bytes(*dst), want) << op.what;
      }
    }
  }
}

TEST(BuiltInEngines, VerticalFlipsMoveWholeRowsEvenForSubBytePixels) {
  auto four_bit = Patterned(formats::A4, 5, 3);  // 3 pixel bytes + 1 padding byte per row
  const auto before = Bytes(*four_bit);
  std::vector<char> want(before.size());
  for (int y = 0; y < 3; ++y) std::copy_n(before.begin() + 4 * y, 4, want.begin() + 4 * (2 - y));
  ASSERT_TRUE(DefaultFlipEngine()->FlipVertical(four_bit.get()));
  EXPECT_EQ(Bytes(*four_bit), want);
}

TEST(BuiltInEngines, CropCopiesTheRectangleAndClipsToTheSource) {
  auto src = Patterned(formats::R8G8B8, 4, 4);
  // The 3 x 3 destination reaches past the source and gets only what exists.
  for (const auto& [x0, y0, n] : std::vector<std::tuple<ull, ull, ull>>{{2, 1, 2}, {3, 2, 3}}) {
    auto dst = Make(formats::R8G8B8, n, n);
    const auto want = Expect(*src, *dst, [x0 = x0, y0 = y0](ull x, ull y) { return std::pair{x0 + x, y0 + y}; });
    ASSERT_TRUE(DefaultCropEngine()->Crop(src.get(), x0, y0, dst.get()));
    EXPECT_EQ(Bytes(*dst), want);
  }
}

TEST(BuiltInEngines, ExtrudeRepeatsEdgesAndCorners) {
  auto src = Patterned(formats::R8G8B8, 2, 2);  // [[a b] [c d]]
  auto dst = Make(formats::R8G8B8, 7, 5);    // left 2, top 2, bottom 1; 3 padding bytes a row
  // Columns and rows 0 to 2 repeat the source's first column and row, the others its last.
  const auto want = Expect(*src, *dst, [](ull x, ull y) { return std::pair<ull, ull>{x > 2, y > 2}; });
  // The right border runs to the destination's width; the right count is not read.
  ASSERT_TRUE(DefaultExtrudeEngine()->Extrude(src.get(), 2, 0, 2, 1, dst.get()));
  EXPECT_EQ(Bytes(*dst), want);
}

TEST(BuiltInEngines, RefusalsLeaveTheDestinationUntouched) {
  // DXT5 averages one byte per pixel, yet no pixel owns a byte.
  const auto rgba = formats::A8R8G8B8, xrgb = formats::X8R8G8B8, a4 = formats::A4, dxt5 = Named("DXT5");
  auto src = Patterned(rgba, 4, 2), dxt = Patterned(dxt5, 4, 4), nib = Patterned(a4, 4, 2);
  FlipEngine* flip = DefaultFlipEngine();
  CropEngine* crop = DefaultCropEngine();
  RotateEngine* rotate = DefaultRotateEngine();
  ExtrudeEngine* extrude = DefaultExtrudeEngine();
  struct Case {
    const char* what;
    std::shared_ptr<SurfaceData> dst;
    std::function<bool(SurfaceData*)> run;
  };
  const Case cases[] = {
      {"flipV other height", Make(rgba, 4, 3), [&](auto* d) { return flip->FlipVertical(src.get(), d); }},
      {"flipV compressed", Make(dxt5, 4, 4), [&](auto* d) { return flip->FlipVertical(dxt.get(), d); }},
      {"flipV in place compressed", Patterned(dxt5, 4, 4), [&](auto* d) { return flip->FlipVertical(d); }},
      {"flipH other format", Make(xrgb, 4, 2), [&](auto* d) { return flip->FlipHorizontal(src.get(), d); }},
      {"flipH sub-byte", Make(a4, 4, 2), [&](auto* d) { return flip->FlipHorizontal(nib.get(), d); }},
      {"flipH in place sub-byte", Patterned(a4, 4, 2), [&](auto* d) { return flip->FlipHorizontal(d); }},
      {"flipH in place compressed", Patterned(dxt5, 4, 4), [&](auto* d) { return flip->FlipHorizontal(d); }},
      {"crop x = width", Make(rgba, 1, 1), [&](auto* d) { return crop->Crop(src.get(), 4, 0, d); }},
      {"crop y = height", Make(rgba, 1, 1), [&](auto* d) { return crop->Crop(src.get(), 0, 2, d); }},
      {"crop other format", Make(xrgb, 1, 1), [&](auto* d) { return crop->Crop(src.get(), 0, 0, d); }},
      {"crop compressed", Make(dxt5, 4, 4), [&](auto* d) { return crop->Crop(dxt.get(), 0, 0, d); }},
      {"crop sub-byte", Make(a4, 2, 2), [&](auto* d) { return crop->Crop(nib.get(), 0, 0, d); }},
      {"rotate 45", Make(rgba, 4, 2), [&](auto* d) { return rotate->Rotate(src.get(), 45, d); }},
      {"rotate 0 into 2x4", Make(rgba, 2, 4), [&](auto* d) { return rotate->Rotate(src.get(), 0, d); }},
      {"rotate 90 into 4x2", Make(rgba, 4, 2), [&](auto* d) { return rotate->Rotate(src.get(), 90, d); }},
      {"rotate other format", Make(xrgb, 2, 4), [&](auto* d) { return rotate->Rotate(src.get(), 90, d); }},
      {"rotate sub-byte", Make(a4, 2, 4), [&](auto* d) { return rotate->Rotate(nib.get(), -90, d); }},
      // Guards against writing outside a mis-sized destination (6 columns needed).
      {"extrude too narrow", Make(rgba, 5, 4), [&](auto* d) { return extrude->Extrude(src.get(), 2, 0, 1, 1, d); }},
      {"extrude sub-byte", Make(a4, 6, 4), [&](auto* d) { return extrude->Extrude(nib.get(), 1, 1, 1, 1, d); }},
  };
  testing::LogCapture log;
  const auto saved = LogChannel;
  LogChannel = 7;
  for (const Case& c : cases) {
    const auto before = Bytes(*c.dst);
    EXPECT_FALSE(c.run(c.dst.get())) << c.what;
    EXPECT_EQ(Bytes(*c.dst), before) << c.what;
  }
  LogChannel = saved;
  // Only the extrude engine logs a refusal, as an error on the library's channel.
  ASSERT_EQ(log.lines.size(), 1u) << log.All();
  EXPECT_EQ(std::make_tuple(log.lines[0].channel, log.lines[0].severity),
            std::make_tuple(7u, lumo::log::Severity::Error));
  EXPECT_EQ(log.lines[0].text, "[BuiltInExtrudeEngine::Extrude]Is available for bytes aligned pixel format but not A4");
}

}  // namespace
}  // namespace lumo::image
