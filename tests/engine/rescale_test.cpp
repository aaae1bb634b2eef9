// The built-in rescale engine against a slow, literal re-derivation of its
// kernels, weight tables, pass rules and pass order, compared byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "lumo/image/engines.h"
#include "lumo/image/formats.h"
#include "lumo/image/half.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"
#include "support/log_capture.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;
using Bytes = std::vector<std::uint8_t>;

// ---- Reference: kernels and the weight table of one pass ----

const double kWidth[7] = {0.5, 2.0, 1.0, 2.0, 2.0, 3.0, 0.0};

double Kernel(int filter, double x) {
  const double a = std::fabs(x);
  switch (filter) {
    case 0: return a <= 0.5 ? 1.0 : 0.0;
    case 1: {  // B = C = 1/3
      const double p0 = 0.8888888888888888, p2 = -2, p3 = 1.1666666666666667, q0 = 1.7777777777777777,
                   q1 = -3.3333333333333335, q2 = 2, q3 = -0.3888888888888889;
      if (a < 1) return (a * p3 + p2) * (a * a) + p0;
      return a < 2 ? ((a * q3 + q2) * a + q1) * a + q0 : 0.0;
    }
    case 2: return a < 1 ? 1 - a : 0.0;
    case 3:
      if (a < 1) return ((a * a) * (3 * a - 6) + 4) / 6;
      return a < 2 ? (2 - a) * (2 - a) * (2 - a) / 6 : 0.0;
    case 4:
      if (x < -2 || x >= 2) return 0.0;
      if (x < -1) return (((x + 5) * x + 8) * x + 4) * 0.5;
      if (x < 0) return ((-5 - 3 * x) * (x * x) + 2) * 0.5;
      if (x < 1) return ((x * x) * (3 * x - 5) + 2) * 0.5;
      return (((5 - x) * x - 8) * x + 4) * 0.5;
    case 5: {
      const double pi = 3.141592653589793;
      const auto sinc = [pi](double t) { return t == 0 ? 1.0 : std::sin(pi * t) / (pi * t); };
      return a < 3 ? sinc(a) * sinc(a / 3) : 0.0;
    }
    default: return 1.0;  // point
  }
}

struct Span {
  ull first = 0;
  std::vector<double> w;
  std::vector<std::int32_t> fixed;
};

std::vector<Span> Weights(int filter, ull S, ull D) {
  const double scale = static_cast<double>(D) / static_cast<double>(S);
  const double w = scale < 1 ? kWidth[filter] / scale : kWidth[filter], f = scale < 1 ? scale : 1.0;
  std::vector<Span> table(D);
  for (ull u = 0; u < D; ++u) {
    Span& s = table[u];
    const double center = u / scale + 0.5 / scale;
    const ull left = static_cast<ull>(std::max(0.0, std::trunc(center - w + 0.5)));
    const ull right = std::min(static_cast<ull>(std::trunc(center + w + 0.5)), S);
    if (left == right) {
      s = {std::min(left, S - 1), {1.0}, {2048}};
      continue;
    }
    s.first = left;
    double sum = 0;
    for (ull i = left; i < right; ++i) sum += s.w.emplace_back(f * Kernel(filter, f * (i + 0.5 - center)));
    if (sum > 0 && sum != 1)
      for (double& x : s.w) x /= sum;
    for (double x : s.w) s.fixed.push_back(static_cast<std::int32_t>(x * 2048));
    while (!s.w.empty() && s.w.back() == 0) s.w.pop_back(), s.fixed.pop_back();
  }
  return table;
}

// ---- Reference: pixel layout and the three pass rules ----

enum class Rule { Fixed, Float, General };

struct Layout {
  int n = 0;
  unsigned bits[4] = {}, offset[4] = {};  // offset: lowest bit of the component inside the pixel
  bool sgn[4] = {}, flt[4] = {}, unnorm = false;
  unsigned bpp = 0;
  Rule rule = Rule::General;
};

Layout Decode(PixelFormatDescriptor format) {
  PixelFormatMeta meta{};
  EXPECT_TRUE(ParseFormat(format, &meta));
  Layout L;
  L.unnorm = meta.unnormalized;
  bool plain = true, floats = true;
  for (; L.n < 4 && meta.components[L.n].bits; ++L.n) {
    const ComponentMeta& c = meta.components[L.n];
    L.bits[L.n] = static_cast<unsigned>(c.bits), L.sgn[L.n] = c.is_signed, L.flt[L.n] = c.is_float;
    L.bpp += L.bits[L.n], plain = plain && !c.is_signed && !c.is_float, floats = floats && c.is_float;
  }
  for (int c = L.n - 1, at = 0; c >= 0; at += L.bits[c--]) L.offset[c] = at;
  const std::vector<unsigned> widths(L.bits, L.bits + L.n);
  const bool same = std::count(widths.begin(), widths.end(), widths[0]) == L.n;
  const bool common = same && (widths[0] == 8 || widths[0] == 16 || widths[0] == 32);
  const std::vector<std::vector<unsigned>> packed = {{5, 6, 5},    {1, 5, 5, 5},    {4, 4, 4, 4},
                                                     {5, 5, 5, 1}, {2, 10, 10, 10}, {10, 10, 10, 2}};
  const bool is_packed = std::find(packed.begin(), packed.end(), widths) != packed.end();
  // A slot holds at most 63 bits, so 16 and 32 are the only whole float widths.
  if (L.bpp % 8 == 0 && plain && (common || is_packed)) L.rule = Rule::Fixed;
  if (L.bpp % 8 == 0 && floats && same && (widths[0] == 16 || widths[0] == 32)) L.rule = Rule::Float;
  return L;
}

struct Image {
  ull width = 0, height = 0, stride = 0;
  Bytes bytes;
};

std::uint64_t GetBits(const Image& im, ull x, ull y, const Layout& L, int c) {
  const std::uint8_t* row = im.bytes.data() + y * im.stride;
  std::uint64_t v = 0;
  for (ull k = 0, bit = x * L.bpp + L.offset[c]; k < L.bits[c]; ++k, ++bit)
    v |= static_cast<std::uint64_t>((row[bit / 8] >> (bit % 8)) & 1) << k;
  return v;
}

// Increasing bit order; a byte is cleared when the write reaches its bit 0.
void PutBits(Image& im, ull x, ull y, const Layout& L, int c, std::uint64_t v) {
  std::uint8_t* row = im.bytes.data() + y * im.stride;
  for (ull k = 0, bit = x * L.bpp + L.offset[c]; k < L.bits[c]; ++k, ++bit) {
    if (bit % 8 == 0) row[bit / 8] = 0;
    row[bit / 8] |= static_cast<std::uint8_t>(((v >> k) & 1) << (bit % 8));
  }
}

template <typename To, typename From>
To BitCast(From from) {
  To to;
  std::memcpy(&to, &from, sizeof to);
  return to;
}

// Floating and general rules share these: a component as a double and back.
double DecodeValue(const Layout& L, int c, std::uint64_t v) {
  const unsigned b = L.bits[c];
  if (L.flt[c]) {
    if (b == 16) return static_cast<float>(half_float::half::FromBits(static_cast<std::uint16_t>(v)));
    if (b == 32) return BitCast<float>(static_cast<std::uint32_t>(v));
    if (b != 10 && b != 11) return 0.0;
    const unsigned mbits = b - 5;
    return std::ldexp(1.0 + static_cast<double>(v & ((1u << mbits) - 1)) / (1u << mbits),
                      static_cast<int>(v >> mbits) - 15);
  }
  if (L.sgn[c]) {
    const double s = static_cast<double>(static_cast<std::int64_t>(v << (64 - b)) >> (64 - b));
    return L.unnorm ? s : s / static_cast<double>((1ull << (b - 1)) - 1);
  }
  return L.unnorm ? static_cast<double>(v) : static_cast<double>(v) / static_cast<double>((1ull << b) - 1);
}

std::uint64_t EncodeValue(const Layout& L, int c, double sum) {
  const unsigned b = L.bits[c];
  if (L.flt[c]) {
    const float f = static_cast<float>(sum);
    if (b == 16) return half_float::half(f).bits();
    if (b == 32) return BitCast<std::uint32_t>(f);
    if (b != 10 && b != 11) return 0;
    const unsigned mbits = b - 5;
    if (sum > (b == 10 ? 64512.0 : 65024.0)) return (30u << mbits) | ((1u << mbits) - 1);
    // Negative, or below the stored 0 (2^-15), where nothing smaller can be
    // placed. Two passes get here often: a clamped 0 decodes to 2^-15 and
    // averages of it round just below.
    if (!(sum >= std::ldexp(1.0, -15))) return 0;
    int e;
    const double fr = std::frexp(sum, &e);
    return (static_cast<std::uint64_t>(e - 1 + 15) << mbits) | static_cast<std::uint64_t>((2 * fr - 1) * (1u << mbits));
  }
  if (L.sgn[c]) {
    const double hi = static_cast<double>((1ull << (b - 1)) - 1);
    const double r = std::clamp(L.unnorm ? std::trunc(sum) : std::round(sum * hi), -hi - 1, hi);
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(r)) & ((1ull << b) - 1);
  }
  const double max = static_cast<double>((1ull << b) - 1);
  return static_cast<std::uint64_t>(std::min(std::round(std::max(sum, 0.0) * (L.unnorm ? 1.0 : max)), max));
}

void Pass(const Layout& L, int filter, const Image& in, Image& out, bool vertical) {
  const ull D = vertical ? out.height : out.width;
  const auto table = Weights(filter, vertical ? in.height : in.width, D);
  for (ull line = 0; line < (vertical ? in.width : in.height); ++line) {
    for (ull u = 0; u < D; ++u) {
      for (int c = L.n - 1; c >= 0; --c) {  // lowest bits first
        std::int64_t isum = 0;
        double dsum = 0;
        for (ull k = 0; k < table[u].w.size(); ++k) {
          const ull i = table[u].first + k;
          const std::uint64_t raw = vertical ? GetBits(in, line, i, L, c) : GetBits(in, i, line, L, c);
          if (L.rule == Rule::Fixed) isum += std::int64_t{table[u].fixed[k]} * static_cast<std::int64_t>(raw);
          else dsum += table[u].w[k] * DecodeValue(L, c, raw);
        }
        const std::uint64_t value =
            L.rule == Rule::Fixed
                ? static_cast<std::uint64_t>(std::clamp<std::int64_t>((isum + 1024) >> 11, 0, (1ll << L.bits[c]) - 1))
                : EncodeValue(L, c, dsum);
        PutBits(out, vertical ? line : u, vertical ? u : line, L, c, value);
      }
    }
  }
}

// At least one of the two sizes differs from the source's.
Image ReferenceRescale(const Layout& L, int filter, const Image& src, ull dw, ull dh, ull dst_stride) {
  Image dst{dw, dh, dst_stride, Bytes(dst_stride * dh, 0xCD)};
  if (dw == src.width || dh == src.height) {
    Pass(L, filter, src, dst, dw == src.width);
  } else if (dw >= src.width) {  // the vertical pass runs on the narrower width
    Image tmp{src.width, dh, src.stride, Bytes(src.stride * dh)};
    Pass(L, filter, src, tmp, true);
    Pass(L, filter, tmp, dst, false);
  } else {
    Image tmp{dw, src.height, dst_stride, Bytes(dst_stride * src.height)};
    Pass(L, filter, src, tmp, false);
    Pass(L, filter, tmp, dst, true);
  }
  return dst;
}

// ---- Tests ----

std::shared_ptr<SurfaceDataBitmap> MakeBitmap(PixelFormatDescriptor f, ull w, ull h, const Bytes& pixels,
                                              ull align = 2) {
  auto s = SurfaceDataBitmap::Create(w, h, f, align);
  if (s && !pixels.empty()) std::memcpy(s->Buffer(), pixels.data(), std::min<ull>(pixels.size(), s->Size()));
  return s;
}

bool RescaleWith(SurfaceData& src, SurfaceData& dst, int filter) {
  return DefaultRescaleEngine()->Rescale(&src, &dst, static_cast<FilterType>(filter));
}

TEST(RescaleEngine, RefusalsLogOneLineAndLeaveBothSurfacesAlone) {
  using formats::DXT1, formats::R8, formats::G8;
  const PixelFormatDescriptor bad{0x7F00};  // slot 0 of kind 63: unparsable
  // The format refusals come before the same-size copy; the filter matters only when resampling.
  struct Case {
    PixelFormatDescriptor from, to;
    ull sw, sh, dw, dh;
    int filter;
    const char* line;
  } cases[] = {
      {DXT1, DXT1, 4, 4, 8, 8, 0, "Compress format not support!"},
      {DXT1, R8, 4, 4, 4, 4, 7, "Compress format not support!"},
      {R8, G8, 4, 4, 8, 8, 0, "Pixel format mismatch!"}, {R8, G8, 4, 4, 4, 4, 7, "Pixel format mismatch!"},
      {bad, bad, 2, 2, 4, 4, 0, "Parse format failed!"}, {bad, bad, 2, 2, 2, 2, 7, "Parse format failed!"},
      {R8, R8, 4, 4, 8, 8, 7, "Unsupport filter type 7."}, {R8, R8, 4, 4, 4, 3, -1, "Unsupport filter type -1."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    const std::shared_ptr<char> sbuf(new char[256], array_deleter()), dbuf(new char[256], array_deleter());
    std::memset(sbuf.get(), 0x11, 256);
    std::memset(dbuf.get(), 0x5A, 256);
    const auto src = SurfaceDataSharedMemory::Create(sbuf, 0, c.from, c.sw, c.sh, 2);
    const auto dst = SurfaceDataSharedMemory::Create(dbuf, 0, c.to, c.dw, c.dh, 2);
    testing::LogCapture log;
    EXPECT_FALSE(RescaleWith(*src, *dst, c.filter));
    EXPECT_EQ(log.Texts(), std::vector<std::string>{std::string("DefaultRescaleEngine: ") + c.line});
    EXPECT_EQ(log.Texts(lumo::log::Severity::Error), log.Texts()) << "logged as an error";
    EXPECT_EQ(std::count(dbuf.get(), dbuf.get() + 256, 0x5A), 256);
    EXPECT_EQ(std::count(sbuf.get(), sbuf.get() + 256, 0x11), 256);
  }
}

TEST(RescaleEngine, SameSizeCopiesRowsWhateverTheFilter) {
  // R8, 3 x 3: alignment 0, 2, 3 give rows of 3, 4 and 8 bytes.
  struct Case {
    ull src_align, dst_align;
    int filter;
  } cases[] = {{2, 2, 7}, {3, 2, 7}, {0, 2, 6}, {2, 3, 100}, {2, 0, -1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.src_align << " -> " << c.dst_align);
    Bytes pixels(24);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<std::uint8_t>(i + 1);
    const auto src = MakeBitmap(formats::R8, 3, 3, pixels, c.src_align);
    const auto dst = MakeBitmap(formats::R8, 3, 3, Bytes(24, 0xEE), c.dst_align);
    testing::LogCapture log;
    ASSERT_TRUE(RescaleWith(*src, *dst, c.filter));
    EXPECT_TRUE(log.lines.empty());
    // Rows are copied, padding included, up to the shorter row size.
    Bytes expected(dst->Size(), 0xEE);
    for (ull y = 0; y < 3; ++y)
      std::memcpy(&expected[y * dst->BytesPerRow()], &pixels[y * src->BytesPerRow()],
                  std::min(src->BytesPerRow(), dst->BytesPerRow()));
    EXPECT_EQ(Bytes(dst->Buffer(), dst->Buffer() + dst->Size()), expected);
  }
}

// Hand-worked rows anchor the reference below, which then covers columns too.
TEST(RescaleEngine, WorkedExamples) {
  struct Case {
    int filter;
    Bytes in, expected;
  } cases[] = {
      {6, {10, 20, 100, 201}, {20, 201}},  {6, {10, 20}, {10, 20, 20, 20}},  // point picks 1, 3 and 0, 1, 1, 1
      {0, {10, 20, 100, 201}, {15, 151}},  {0, {10, 20, 100, 201}, {83}},    // box: pairs at 0.5, all four at 0.25
      // Catmull-Rom on a step: the undershoot (about -18) gives 0, the overshoot 255.
      {4, {0, 0, 0, 255, 255, 255}, {0, 0, 0, 0, 0, 52, 203, 255, 255, 255, 255, 255}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "filter " << c.filter << " to " << c.expected.size());
    const auto src = MakeBitmap(formats::R8, c.in.size(), 1, c.in);
    const auto dst = MakeBitmap(formats::R8, c.expected.size(), 1, {});
    ASSERT_TRUE(RescaleWith(*src, *dst, c.filter));
    EXPECT_EQ(Bytes(dst->Buffer(), dst->Buffer() + c.expected.size()), c.expected);
  }
}

struct FormatCase {
  const char* name;
  Rule rule;
};
void PrintTo(const FormatCase& c, std::ostream* os) { *os << c.name; }

class RescaleReference : public ::testing::TestWithParam<FormatCase> {};

TEST_P(RescaleReference, MatchesByteForByte) {
  PixelFormatDescriptor format{};
  ASSERT_TRUE(FromString(GetParam().name, &format));
  const Layout L = Decode(format);
  ASSERT_EQ(L.rule, GetParam().rule) << "the table files this format under the wrong rule";
  std::mt19937 rng(0x5eed + static_cast<unsigned>(format));
  const auto pick = [&](ull lo, ull hi) { return lo + rng() % (hi - lo + 1); };
  for (int filter = 0; filter < 7; ++filter) {
    int failures = 0;
    for (int round = 0; round < 15; ++round) {  // width only, height only, both
      const ull sw = pick(1, 13), sh = pick(1, 13);
      ull dw = sw, dh = sh;
      while (round % 3 != 1 && dw == sw) dw = pick(1, 13);
      while (round % 3 != 0 && dh == sh) dh = pick(1, 13);
      const auto src = SurfaceDataBitmap::Create(sw, sh, format, pick(0, 1) * 3);
      const auto dst = SurfaceDataBitmap::Create(dw, dh, format, 2);
      ASSERT_TRUE(src && dst);
      Image in{sw, sh, src->BytesPerRow(), Bytes(src->Size())};
      for (auto& b : in.bytes) b = static_cast<std::uint8_t>(rng());
      if (HasFloatComponent(format))  // whole-byte pixels: rewrite every field, lowest bits first
        for (ull y = 0; y < sh; ++y)
          for (ull x = 0; x < sw; ++x)
            for (int c = L.n - 1; c >= 0; --c) {
              std::uint64_t raw = GetBits(in, x, y, L, c);
              if (L.bits[c] == 16 || L.bits[c] == 32) {  // finite, some of them half subnormals
                const double v = (rng() % 8001) / 1000.0 - 4.0;
                raw = EncodeValue(L, c, rng() % 8 ? v : v * 1e-6);
              }
              PutBits(in, x, y, L, c, raw);
            }
      std::memcpy(src->Buffer(), in.bytes.data(), in.bytes.size());
      std::memset(dst->Buffer(), 0xCD, dst->Size());
      ASSERT_TRUE(RescaleWith(*src, *dst, filter));
      const Image ref = ReferenceRescale(L, filter, in, dw, dh, dst->BytesPerRow());
      const ull used = (dw * L.bpp + 7) / 8;
      for (ull y = 0; y < dh; ++y) {
        const auto* got = reinterpret_cast<const std::uint8_t*>(dst->Buffer()) + y * dst->BytesPerRow();
        const auto diff = std::mismatch(got, got + used, ref.bytes.data() + y * ref.stride);
        if (diff.first == got + used) continue;
        if (failures++ == 0)
          ADD_FAILURE() << "filter " << filter << ", " << sw << "x" << sh << " -> " << dw << "x" << dh << ": row " << y
                        << " byte " << diff.first - got << " is 0x" << std::hex << int{*diff.first} << ", expected 0x"
                        << int{*diff.second};
        break;
      }
    }
    EXPECT_EQ(failures, 0) << "filter " << filter << ": cases that differ from the reference";
  }
}

const FormatCase kFormats[] = {
    {"A8B8G8R8", Rule::Fixed},     {"X8R8G8B8", Rule::Fixed},       {"R8", Rule::Fixed},
    {"G8R8", Rule::Fixed},         {"R8G8B8", Rule::Fixed},         {"R16", Rule::Fixed},
    {"A16B16G16R16", Rule::Fixed}, {"R32", Rule::Fixed},            {"G32R32", Rule::Fixed},
    {"R5G6B5", Rule::Fixed},       {"A1R5G5B5", Rule::Fixed},       {"X1R5G5B5", Rule::Fixed},
    {"R5G5B5A1", Rule::Fixed},     {"A4R4G4B4", Rule::Fixed},       {"A2B10G10R10", Rule::Fixed},
    {"R10G10B10A2", Rule::Fixed},
    // Unnormalized unsigned components are unsigned integers too.
    {"u_R8", Rule::Fixed},         {"u_A16B16G16R16", Rule::Fixed},
    {"R16f", Rule::Float},         {"G16fR16f", Rule::Float},       {"B16fG16fR16f", Rule::Float},
    {"A16fB16fG16fR16f", Rule::Float}, {"u_A16fB16fG16fR16f", Rule::Float}, {"R32f", Rule::Float},
    {"R32fG32fB32f", Rule::Float}, {"A32fB32fG32fR32f", Rule::Float},
    {"A1", Rule::General},         {"A4", Rule::General},           {"u_R4", Rule::General},
    {"R4G4B4", Rule::General},     {"R3G3B2", Rule::General},       {"R8s", Rule::General},
    {"R16s", Rule::General},       {"A8sB8sG8sR8s", Rule::General}, {"u_R8s", Rule::General},
    {"u_R16s", Rule::General},     {"R16G8", Rule::General},        {"R16fG8", Rule::General},
    {"R32fG16f", Rule::General},   {"B10fG11fR11f", Rule::General},
};

INSTANTIATE_TEST_SUITE_P(Formats, RescaleReference, ::testing::ValuesIn(kFormats),
                         [](const ::testing::TestParamInfo<FormatCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace lumo::image
