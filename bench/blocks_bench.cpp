// Block codecs on a 2048 x 2048 photo-like picture (lmimage::blocks):
//   Encode/<format>/<effort>: EncodeBlocks on every core, with "MP/s" and the
//                             round trip's "PSNR" (dB, over the channels the
//                             format keeps) as counters;
//   Decode/<format>:          DecodeBlocks of the Normal-effort blocks, one
//                             thread, "MP/s".
// Wall-clock times: the encoders use every core, so a loaded machine shows.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "lumo/image/blocks.h"
#include "lumo/image/compressed_formats.h"
#include "lumo/image/formats.h"
#include "photo.h"

namespace {

namespace im = lumo::image;
namespace blocks = lumo::image::blocks;

constexpr std::uint32_t kSide = 2048;

im::PixelFormatDescriptor Descriptor(im::CompressFormat f) {
  return static_cast<im::PixelFormatDescriptor>((static_cast<unsigned long long>(f) << 8) | 1u);
}

// The measurement picture shared with make_photo (and so with the
// comparison against command-line encoders), with an alpha channel.
const std::vector<std::uint8_t>& Photo() {
  static const std::vector<std::uint8_t> pixels = lumo::image::bench::PhotoPicture(kSide, kSide, true);
  return pixels;
}

double PSNR(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b, unsigned channels) {
  double squares = 0;
  std::size_t n = 0;
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i)
    if (channels >> (i & 3) & 1) squares += double(a[i] - b[i]) * double(a[i] - b[i]), ++n;
  return squares == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * double(n) / squares);
}

struct Target {
  const char* name;
  im::CompressFormat format;
  unsigned channels;  // compared by PSNR: bit 0 R .. bit 3 A
};
const Target kTargets[] = {{"DXT1", im::CompressFormat::DXT1, 0x7},
                           {"DXT5", im::CompressFormat::DXT5, 0xF},
                           {"BC5", im::CompressFormat::BC5_unsigned, 0x3},
                           {"ASTC4x4", im::CompressFormat::ASTC_RGBA_4x4, 0xF},
                           {"ASTC6x6", im::CompressFormat::ASTC_RGBA_6x6, 0xF}};
const char* const kEfforts[] = {"Fast", "Normal", "Best"};

std::vector<std::uint8_t> EncodeOnce(const Target& t, blocks::Quality q) {
  const std::vector<std::uint8_t>& px = Photo();
  std::vector<std::uint8_t> out(im::BytesTotal(Descriptor(t.format), kSide, kSide, 0));
  if (!blocks::EncodeBlocks(Descriptor(t.format), px.data(), px.size(), kSide * 4, kSide, kSide, out.data(), out.size(),
                            q))
    out.clear();
  return out;
}

bool DecodeOnce(const Target& t, const std::vector<std::uint8_t>& in, std::vector<std::uint8_t>* out) {
  out->resize(std::size_t{kSide} * kSide * 4);
  return blocks::DecodeBlocks(Descriptor(t.format), in.data(), in.size(), kSide, kSide, 1, out->data(), out->size(),
                              kSide * 4);
}

void BM_Encode(benchmark::State& state, Target t, blocks::Quality q) {
  Photo();
  std::vector<std::uint8_t> out;
  for (auto _ : state) {
    out = EncodeOnce(t, q);
    benchmark::DoNotOptimize(out.data());
  }
  if (out.empty()) {
    state.SkipWithError("no encoder");
    return;
  }
  state.counters["MP/s"] =
      benchmark::Counter(double(kSide) * kSide / 1e6, benchmark::Counter::kIsIterationInvariantRate);
  std::vector<std::uint8_t> back;
  if (DecodeOnce(t, out, &back)) state.counters["PSNR"] = PSNR(back, Photo(), t.channels);
}

void BM_Decode(benchmark::State& state, Target t) {
  static std::map<int, std::vector<std::uint8_t>> encoded;
  std::vector<std::uint8_t>& in = encoded[static_cast<int>(t.format)];
  if (in.empty()) in = EncodeOnce(t, blocks::Quality::Normal);
  std::vector<std::uint8_t> out;
  if (in.empty() || !DecodeOnce(t, in, &out)) {
    state.SkipWithError("no encoder or decoder");
    return;
  }
  for (auto _ : state) {
    DecodeOnce(t, in, &out);
    benchmark::DoNotOptimize(out.data());
  }
  state.counters["MP/s"] =
      benchmark::Counter(double(kSide) * kSide / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

const bool kRegistered = [] {
  for (const Target& t : kTargets) {
    for (int q = 0; q < 3; ++q)
      benchmark::RegisterBenchmark(("Blocks/Encode/" + std::string(t.name) + "/" + kEfforts[q]).c_str(), BM_Encode, t,
                                   static_cast<blocks::Quality>(q))
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime()
          ->MinTime(0.5);
    benchmark::RegisterBenchmark(("Blocks/Decode/" + std::string(t.name)).c_str(), BM_Decode, t)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
  }
  return true;
}();

}  // namespace
