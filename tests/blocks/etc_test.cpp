// ETC1, ETC2 and EAC decoding: hand-worked blocks of every mode, random
// blocks against the system's software OpenGL renderer, ETC1 files against
// etc1tool, and corpus files of one picture in different formats against
// each other.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "blocks/block_refs.h"
#include "lumo/image/blocks.h"
#include "lumo/image/surface_data.h"
#include "support/files.h"
#include "support/surfaces.h"

namespace lumo::image::blocks {
namespace {

using testing::Block;
using testing::Compressed;
using testing::CorpusDir;
using testing::DecodeValues;
using testing::LoadPyramid;
using F = CompressFormat;

// {pixel, R, G, B, A}: bytes, for EAC 16-bit values (signed where the format is).
// Index word 0x81008010: pixel 0 index 0, 1 1, 2 2, 15 3, the rest 0.
// Index word 0x000C000A: pixels 0, 4, 8, 12 indices 0 to 3, the rest 0.
// EAC indices 7E 49 24 92 49 24: pixel 0 3, 4 7, the rest 4;
// EC 00 00 00 00 00: 7, 3, the rest 0.
TEST(EtcBlocks, HandWorkedBlocksOfEveryMode) {
  const struct {
    const char* name;
    F format;
    Block block;
    std::vector<std::vector<int>> pixels;
  } cases[] = {
      // clang-format off
    {"Etc1Individual", F::ETC1, {0x82, 0x4C, 0x0F, 0x1C, 0x81, 0x00, 0x80, 0x10},
     {{0, 138, 70, 2, 255}, {1, 144, 76, 8, 255}, {2, 0, 157, 208, 255}, {15, 0, 21, 72, 255},
     {4, 138, 70, 2, 255}, {3, 81, 251, 255, 255}}},
    {"Etc1IndividualFlipped", F::ETC1, {0x82, 0x4C, 0x0F, 0x1D, 0x81, 0x00, 0x80, 0x10},
     {{2, 134, 66, 0, 255}, {15, 0, 21, 72, 255}, {12, 81, 251, 255, 255}, {1, 144, 76, 8, 255}}},
    {"Etc1Differential", F::ETC1, {0x83, 0xFC, 0x00, 0x2A, 0x81, 0x00, 0x80, 0x10},
     {{0, 137, 255, 5, 255}, {1, 149, 255, 17, 255}, {2, 147, 213, 0, 255}, {15, 127, 193, 0, 255},
     {3, 165, 231, 9, 255}}},
    {"Etc2T", F::ETC2_RGB8, {0x05, 0xA5, 0x80, 0xFF, 0x00, 0x0C, 0x00, 0x0A}, {{0, 17, 170, 85, 255},
     {4, 200, 64, 255, 255}, {8, 136, 0, 255, 255}, {12, 72, 0, 191, 255}, {15, 17, 170, 85, 255}}},
    {"Etc2HFirstColourGreater", F::ETC2_RGB8, {0x43, 0x06, 0x97, 0x0E, 0x00, 0x0C, 0x00, 0x0A},
     {{0, 168, 134, 117, 255}, {4, 104, 70, 53, 255}, {8, 66, 255, 49, 255}, {12, 2, 206, 0, 255}}},
    {"Etc2HSecondColourGreater", F::ETC2_RGB8, {0x0B, 0x06, 0x97, 0x0E, 0x00, 0x0C, 0x00, 0x0A},
     {{0, 40, 125, 108, 255}, {4, 0, 79, 62, 255}, {8, 57, 255, 40, 255}, {12, 11, 215, 0, 255}}},
    {"Etc2Planar", F::ETC2_RGB8, {0x41, 0x00, 0x07, 0xFF, 0x01, 0xF8, 0x1F, 0xE0},
     {{0, 130, 129, 28, 255}, {3, 224, 32, 198, 255}, {12, 33, 224, 105, 255},
     {15, 126, 127, 255, 255}}},
    // Opaque bit clear: index 0 keeps the base colour, index 2 is transparent black.
    {"PunchThroughDifferentialTransparent", F::ETC2_RGB8A1,
     {0x83, 0xFC, 0x00, 0x28, 0x81, 0x00, 0x80, 0x10},
     {{0, 132, 255, 0, 255}, {1, 149, 255, 17, 255}, {2, 0, 0, 0, 0}, {15, 127, 193, 0, 255},
     {3, 156, 222, 0, 255}}},
    {"PunchThroughTTransparent", F::ETC2_RGB8A1, {0x05, 0xA5, 0x80, 0xFD, 0x00, 0x0C, 0x00, 0x0A},
     {{0, 17, 170, 85, 255}, {4, 200, 64, 255, 255}, {8, 0, 0, 0, 0}, {12, 72, 0, 191, 255}}},
    // Planar blocks are opaque whatever bit 33 says.
    {"PunchThroughPlanarIgnoresOpaqueBit", F::ETC2_RGB8A1,
     {0x41, 0x00, 0x07, 0xFD, 0x01, 0xF8, 0x1F, 0xE0},
     {{0, 130, 129, 28, 255}, {15, 126, 127, 255, 255}}},
    // An 8-bit alpha multiplier of 0 gives the base everywhere.
    {"Rgba8AlphaMultiplierZero", F::ETC2_RGBA8,
     {0x80, 0x0D, 0x7E, 0x49, 0x24, 0x92, 0x49, 0x24, 0x05, 0xA5, 0x80, 0xFF, 0x00, 0x0C, 0x00, 0x0A},
     {{0, 17, 170, 85, 128}, {4, 200, 64, 255, 128}, {15, 17, 170, 85, 128}}},
    {"Rgba8AlphaClamped", F::ETC2_RGBA8,
     {0xFA, 0xF0, 0xEC, 0, 0, 0, 0, 0, 0x05, 0xA5, 0x80, 0xFF, 0x00, 0x0C, 0x00, 0x0A},
     {{0, 17, 170, 85, 255}, {4, 200, 64, 255, 25}, {1, 17, 170, 85, 205}}},
    {"R11Top", F::EAC_R11, {0xFF, 0xF0, 0xEC, 0, 0, 0, 0, 0}, {{0, 65535, 0, 0, 65535},
     {4, 7811, 0, 0, 65535}, {13, 53914, 0, 0, 65535}}},
    {"R11Bottom", F::EAC_R11, {0x00, 0xF0, 0x7C, 0, 0, 0, 0, 0}, {{0, 0, 0, 0, 65535},
     {4, 53914, 0, 0, 65535}, {3, 0, 0, 0, 65535}}},
    // Signed: magnitudes widen to m << 5 | m >> 5, so +-1023 reach +-32767.
    {"SignedR11Top", F::EAC_SIGNED_R11, {0x7F, 0xF0, 0xEC, 0, 0, 0, 0, 0}, {{0, 32767, 0, 0, 32767},
     {4, -25112, 0, 0, 32767}, {15, 21012, 0, 0, 32767}}},
    // Base -128 reads as -127 (index 7 would give -1015 instead of -1007 otherwise).
    {"SignedR11BaseMinus128", F::EAC_SIGNED_R11, {0x80, 0x0D, 0x7E, 0x49, 0x24, 0x92, 0x49, 0x24},
     {{0, -32767, 0, 0, 32767}, {4, -32255, 0, 0, 32767}, {6, -32543, 0, 0, 32767}}},
    {"SignedRG11", F::EAC_SIGNED_RG11,
     {0x7F, 0xF0, 0xEC, 0, 0, 0, 0, 0, 0x80, 0x0D, 0x7E, 0x49, 0x24, 0x92, 0x49, 0x24},
     {{0, 32767, -32767, 0, 32767}, {4, -25112, -32255, 0, 32767}, {15, 21012, -32543, 0, 32767}}},
      // clang-format on
  };
  for (const auto& c : cases) EXPECT_TRUE(testing::DecodesTo(Compressed(c.format), c.block, 4, 4, c.pixels)) << c.name;
}

// The system's software OpenGL renderer, reached through libEGL at run time
// (nothing links it): its function lookup once a context is current, or null.
using Proc = void* (*)(const char*);
template <typename T>
T Fn(Proc gl, const char* name) {
  return reinterpret_cast<T>(gl(name));
}
Proc SoftwareGl() {
  static const Proc gl = []() -> Proc {
    void* egl = dlopen("libEGL.so.1", RTLD_NOW | RTLD_LOCAL);
    const Proc get = egl ? reinterpret_cast<Proc>(dlsym(egl, "eglGetProcAddress")) : nullptr;
    if (!get) return nullptr;
    const auto display_of = Fn<void* (*)(unsigned, void*, const std::intptr_t*)>(get, "eglGetPlatformDisplayEXT");
    const auto initialize = Fn<unsigned (*)(void*, int*, int*)>(get, "eglInitialize");
    const auto bind_api = Fn<unsigned (*)(unsigned)>(get, "eglBindAPI");
    const auto create = Fn<void* (*)(void*, void*, void*, const int*)>(get, "eglCreateContext");
    const auto make_current = Fn<unsigned (*)(void*, void*, void*, void*)>(get, "eglMakeCurrent");
    if (!display_of || !initialize || !bind_api || !create || !make_current) return nullptr;
    void* display = display_of(0x31DD /* surfaceless platform */, nullptr, nullptr);
    int major = 0, minor = 0;
    if (!display || !initialize(display, &major, &minor) || !bind_api(0x30A2 /* desktop GL */)) return nullptr;
    void* context = create(display, nullptr, nullptr, nullptr);
    const bool ok = context && make_current(display, nullptr, nullptr, context);
    return ok && get("glCompressedTexImage2D") && get("glGetTexImage") ? get : nullptr;
  }();
  return gl;
}

// The blocks uploaded as `internal_format` and read back as `format`/`type`.
bool GlDecode(Proc gl, unsigned internal_format, const Block& blocks, int w, int h, unsigned format, unsigned type,
              void* out) {
  const unsigned kTexture2D = 0x0DE1;
  const auto error = Fn<unsigned (*)()>(gl, "glGetError");
  unsigned texture = 0;
  Fn<void (*)(int, unsigned*)>(gl, "glGenTextures")(1, &texture);
  Fn<void (*)(unsigned, unsigned)>(gl, "glBindTexture")(kTexture2D, texture);
  while (error() != 0) {
  }
  Fn<void (*)(unsigned, int, unsigned, int, int, int, int, const void*)>(gl, "glCompressedTexImage2D")(
      kTexture2D, 0, internal_format, w, h, 0, static_cast<int>(blocks.size()), blocks.data());
  bool ok = error() == 0;
  Fn<void (*)(unsigned, int)>(gl, "glPixelStorei")(0x0D05 /* pack alignment */, 1);
  if (ok) Fn<void (*)(unsigned, int, unsigned, unsigned, void*)>(gl, "glGetTexImage")(kTexture2D, 0, format, type, out);
  ok = ok && error() == 0;
  Fn<void (*)(int, const unsigned*)>(gl, "glDeleteTextures")(1, &texture);
  return ok;
}

// Thousands of random blocks of every format (every mode is reached many
// times) decode exactly as the software renderer decodes them; ETC1 data goes
// through its ETC2 RGB8 path. EAC reads back as 16-bit values.
TEST(EtcBlocks, RandomBlocksMatchTheSoftwareRenderer) {
  const Proc gl = SoftwareGl();
  if (gl == nullptr) GTEST_SKIP() << "no software OpenGL renderer (libEGL with a surfaceless platform)";
  const unsigned rgba = 0x1908, red = 0x1903, rg = 0x8227, u8 = 0x1401, u16 = 0x1403, s16 = 0x1402;
  const struct {
    F format;
    unsigned internal_format, read_format, read_type, channels;
  } cases[] = {{F::ETC1, 0x9274, rgba, u8, 4},        {F::ETC2_RGB8, 0x9274, rgba, u8, 4},
               {F::ETC2_RGB8A1, 0x9276, rgba, u8, 4}, {F::ETC2_RGBA8, 0x9278, rgba, u8, 4},
               {F::EAC_R11, 0x9270, red, u16, 1},     {F::EAC_SIGNED_R11, 0x9271, red, s16, 1},
               {F::EAC_RG11, 0x9272, rg, u16, 2},     {F::EAC_SIGNED_RG11, 0x9273, rg, s16, 2}};
  for (const auto& f : cases) {
    std::mt19937 rng(static_cast<unsigned>(f.format));
    const int w = 64, h = 64;
    Block blocks(BytesTotal(Compressed(f.format), w, h, 0));
    for (int round = 0; round < 8; ++round) {
      for (auto& b : blocks) b = static_cast<std::uint8_t>(rng());
      const std::vector<int> ours = DecodeValues(Compressed(f.format), blocks, w, h);
      std::vector<std::uint8_t> read(std::size_t{w} * h * f.channels * (f.read_type == u8 ? 1 : 2));
      ASSERT_TRUE(GlDecode(gl, f.internal_format, blocks, w, h, f.read_format, f.read_type, read.data()));
      for (std::size_t i = 0; i < std::size_t{w} * h * f.channels; ++i) {
        const int u = f.read_type == u8 ? read[i] : read[2 * i] | read[2 * i + 1] << 8;
        const int theirs = f.read_type == s16 ? static_cast<std::int16_t>(u) : u;
        ASSERT_EQ(ours[i / f.channels * 4 + i % f.channels], theirs)
            << int(f.format) << " round " << round << " pixel " << i / f.channels << " channel " << i % f.channels;
      }
    }
  }
}

// Level 0 of a corpus file decoded, as top-down RGBA8 bytes (empty when missing).
std::string Rgba8(const std::string& name) {
  const auto picture = testing::LoadRGBA8(CorpusDir() + "/" + name);
  return picture ? testing::Tight(*picture) : std::string();
}

// etc1tool decodes each file's ETC1 blocks (rewrapped as a PKM 1.0 file, all
// it reads); ours must agree exactly. The relabelled ETC2 copy of the first
// file never leaves the differential range, so the ETC2 decoder must agree too.
TEST(EtcCorpus, Etc1MatchesEtc1tool) {
  if (!testing::ToolAvailable("etc1tool")) GTEST_SKIP() << "etc1tool not installed";
  for (const char* name : {"pkm/etc1tool_37x21.pkm", "pkm/etc1tool_64x48.pkm", "ktx/khr_etc1.ktx", "pvr/v3_etc1.pvr"}) {
    SCOPED_TRACE(name);
    const auto pyramid = LoadPyramid(CorpusDir() + "/" + name);
    if (!pyramid) GTEST_SKIP() << name << " missing";
    const SurfaceData& data = *pyramid->GetSurface(0, 0)->Data();
    ASSERT_EQ(GetCompressFormat(data.Format()), F::ETC1);
    const unsigned w = static_cast<unsigned>(data.Width()), h = static_cast<unsigned>(data.Height());
    std::string file = "PKM 10";
    for (const unsigned v : {0u, (w + 3) & ~3u, (h + 3) & ~3u, w, h}) file += {char(v >> 8), char(v & 0xFF)};
    file.append(data.Buffer(), data.Size());
    std::string stem = name;
    std::replace(stem.begin(), stem.end(), '/', '_');
    const std::string pkm = testing::ScratchPath(stem + ".pkm"), png = testing::ScratchPath(stem + ".png");
    std::ofstream(pkm, std::ios::binary) << file;
    ASSERT_TRUE(testing::RunCommand("etc1tool '" + pkm + "' --decode -o '" + png + "'"));
    const auto theirs = testing::LoadRGBA8(png), ours = testing::LoadRGBA8(pkm);
    ASSERT_TRUE(theirs && ours);
    const testing::Difference d = testing::Compare(*ours, *theirs);
    ASSERT_TRUE(d.comparable);
    EXPECT_EQ(d.max, 0) << "mean " << d.mean;
    std::remove(pkm.c_str());
    std::remove(png.c_str());
  }
  const std::string etc1 = Rgba8("pkm/etc1tool_37x21.pkm");
  for (const char* name : {"pkm/py_v2_etc2_rgb8.pkm", "pkm/py_v2_srgb_etc2_rgb8.pkm"})
    EXPECT_TRUE(!etc1.empty() && Rgba8(name) == etc1) << name;
}

// The conformance ETC files encode one picture; the ETC1 decode is checked
// against etc1tool above, so the ETC2 decodes must come close to it (the
// punch-through file where it is opaque; its transparent pixels where the
// 8-bit alpha file is mostly transparent). The modes are pinned by the hand
// blocks and the renderer comparison; this catches file-level mix-ups.
TEST(EtcCorpus, Etc2FilesAgreeWithTheEtc1Picture) {
  const std::string reference = Rgba8("ktx/khr_etc1.ktx");
  if (reference.empty()) GTEST_SKIP() << "ktx/khr_etc1.ktx missing";
  for (const char* name : {"ktx/khr_etc2-rgb.ktx", "ktx/khr_etc2-sRGB.ktx", "ktx/khr_etc2-rgba8.ktx",
                           "ktx/khr_etc2-sRGBa8.ktx", "ktx/khr_etc2-rgba1.ktx"}) {
    const std::string ours = Rgba8(name);
    ASSERT_EQ(ours.size(), reference.size()) << name;
    double squares = 0, n = 0;
    for (std::size_t i = 0; i < ours.size(); ++i)
      if (i % 4 < 3 && ours[i - i % 4 + 3] != 0) {
        const double d = std::uint8_t(ours[i]) - std::uint8_t(reference[i]);
        squares += d * d, n += 1;
      }
    EXPECT_GT(10 * std::log10(255.0 * 255.0 * n / squares), 30.0) << name;
  }
  const std::string rgba8 = Rgba8("ktx/khr_etc2-rgba8.ktx"), rgba1 = Rgba8("ktx/khr_etc2-rgba1.ktx");
  double agree = 0;
  for (std::size_t i = 3; i < rgba1.size(); i += 4)
    agree += (std::uint8_t(rgba8[i]) >= 128) == (std::uint8_t(rgba1[i]) == 255);
  EXPECT_GT(4 * agree / double(rgba1.size()), 0.95);
}

}  // namespace
}  // namespace lumo::image::blocks
