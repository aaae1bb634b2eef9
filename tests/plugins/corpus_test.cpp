// Real files from the shared corpus, one container at a time: every row of
// MANIFEST.tsv for the container is loaded through the factory and checked
// against the manifest (properties, reference bytes, refusals, the log lines,
// origin and alpha pyramid its notes call for), then written back in its own
// format, loaded again and compared with what was first loaded.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;
using testing::Bytes;
using testing::CorpusRow;
using testing::LevelBytes;

// The manifest's container names and what sets their files apart.
struct Container {
  const char* name;
  ImageFormat format;   // of the plugin that must be registered for the rows to run
  const char* warning;  // part of the one warning a row noted "warning expected" logs, or ""
  bool whole_pyramid;   // its writer keeps every level; the others write level 0, surface 0
  bool lossy = false;   // a round trip keeps the format and size, not the pixels
};
const Container kContainers[] = {
    {"DDS", ImageFormat::DDS, "memory overflow", true},
    {"KTX", ImageFormat::KTX, "", true},
    {"PVR", ImageFormat::PVR, "", true},
    {"PKM", ImageFormat::PKM, "", false},
    {"ASTC", ImageFormat::ASTC, "", false},
    {"PNG", ImageFormat::PNG, "", false},
    {"JPEG", ImageFormat::JPG, "", false, true},
    {"TGA", ImageFormat::TGA, "", false},
    {"BMP", ImageFormat::BMP, "", false},
    {"GIF", ImageFormat::GIF, "", false},
    {"HDR", ImageFormat::HDR, "", false},
};

void PrintTo(const Container& c, std::ostream* os) { *os << c.name; }

bool Notes(const CorpusRow& row, const char* text) { return row.notes.find(text) != std::string::npos; }

// How a row's ref file is compared with the loaded image, by the manifest's ref_kind.
// The picture containers will add "rgba8" and "rgbaf32" (decoded pixels, top row first).
using RefCheck = ::testing::AssertionResult (*)(const CorpusRow& row, const Pyramid& loaded, const Bytes& ref);

::testing::AssertionResult SamePayload(const CorpusRow& row, const Pyramid& loaded, const Bytes& ref) {
  if (LevelBytes(loaded, 0, false) == std::string(ref.begin(), ref.end())) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "level 0 bytes differ from " << row.ref;
}

// A picture as the rgba8 refs hold it: R, G, B, A bytes, top row first, read
// straight from the pixels' integer components as the refs' makers did: 16
// bits give their high byte, fewer than 8 are widened (a 2-bit 3 is 255), and
// a single component (A1 to A8, R16, ...) is grey. nullopt for float and
// block formats.
// `replicate`: the ref's maker widened fields below 8 bits by repeating their
// bits (a 5-bit v gives v << 3 | v >> 2) instead of v * 255 / max.
std::optional<std::string> Rgba8(const SurfaceData& data, bool replicate = false) {
  PixelFormatMeta meta{};
  if (!ParseFormat(data.Format(), &meta) || meta.compressed || HasFloatComponent(meta)) return std::nullopt;
  const ull bpp = BitsPerPixel(meta, nullptr);
  int used = 0;
  for (const ComponentMeta& c : meta.components) {
    used += c.component != PixelComponent::None && c.component != PixelComponent::X ? 1 : 0;
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(data.Buffer());
  std::string out;
  for (ull y = 0; y < data.Height(); ++y) {
    for (ull x = 0; x < data.Width(); ++x) {
      // Pixels are little-endian bit fields, packed from the low bits of each byte.
      auto bits = [&](ull from, ull count) {
        ull v = 0;
        for (ull i = 0; i < count; ++i) {
          const ull at = x * bpp + from + i;
          v |= ull{(bytes[y * data.BytesPerRow() + at / 8] >> (at % 8)) & 1u} << i;
        }
        return v;
      };
      unsigned char rgba[4] = {0, 0, 0, 255};
      ull high = bpp;  // slot 0 holds the most significant bits
      for (const ComponentMeta& c : meta.components) {
        if (c.component == PixelComponent::None) break;
        high -= c.bits;
        const ull v = bits(high, c.bits);
        ull wide = c.bits >= 8 ? v >> (c.bits - 8) : v * 255 / ((1ull << c.bits) - 1);
        if (replicate && c.bits < 8) {
          const int bits = static_cast<int>(c.bits);
          wide = 0;
          for (int at = 8 - bits; at > -bits; at -= bits) wide |= at >= 0 ? v << at : v >> -at;
        }
        const auto v8 = static_cast<unsigned char>(wide);
        if (used == 1 || c.component == PixelComponent::L) {
          rgba[0] = rgba[1] = rgba[2] = v8;
        } else if (c.component >= PixelComponent::R && c.component <= PixelComponent::A) {
          rgba[static_cast<int>(c.component) - static_cast<int>(PixelComponent::R)] = v8;
        }
      }
      out.append(reinterpret_cast<const char*>(rgba), 4);
    }
  }
  return out;
}

// The data of a PNG's first chunk of `type`, or nothing.
std::optional<std::string> PngChunkData(const Bytes& png, const char* type) {
  for (size_t at = 8; at + 12 <= png.size(); at += 12 + size_t{testing::Get32BE(png, at)}) {
    const size_t length = testing::Get32BE(png, at);
    if (std::string(&png[at + 4], 4) == type && at + 8 + length <= png.size()) {
      return std::string(&png[at + 8], length);
    }
  }
  return std::nullopt;
}

// PNG refs as the reader must decode them. The refs were made without gamma
// correction; the reader corrects for a screen of 2.2 as libpng does, 8-bit
// samples through floor(255 (v / 255)^g + 0.5) with g = 1 / (file gamma x
// 2.2), unless g is within 0.05 of 1. And the refs' maker ignored the tRNS
// grey of files below 8 bits (it compared it with the widened samples): such
// a file's pixels of exactly that grey are transparent.
void AdjustPngRef(const CorpusRow& row, std::string* rgba) {
  const std::optional<Bytes> file = testing::ReadFile(testing::CorpusDir() + "/" + row.file);
  if (!file || file->size() < 33) return;
  const std::optional<std::string> gamma = PngChunkData(*file, "gAMA");
  const double file_gamma = gamma && gamma->size() == 4 ? testing::Get32BE(Bytes(gamma->begin(), gamma->end()), 0) : 0;
  if (file_gamma != 0 && std::abs(file_gamma * 2.2 - 1e5) >= 5000) {
    const double g = std::floor(1e15 / file_gamma / 220000 + 0.5) * 1e-5;
    for (size_t i = 0; i < rgba->size(); ++i) {
      if (i % 4 == 3) continue;  // alpha is not corrected
      const double v = static_cast<unsigned char>((*rgba)[i]) / 255.0;
      (*rgba)[i] = static_cast<char>(std::floor(255 * std::pow(v, g) + 0.5));
    }
  }
  const int depth = (*file)[24], color = (*file)[25];
  const std::optional<std::string> trns = PngChunkData(*file, "tRNS");
  if (color == 0 && depth < 8 && trns && trns->size() == 2) {
    const int grey = static_cast<unsigned char>((*trns)[1]) * 255 / ((1 << depth) - 1);
    for (size_t i = 0; i + 3 < rgba->size(); i += 4) {
      if (static_cast<unsigned char>((*rgba)[i]) == grey) (*rgba)[i + 3] = 0;
    }
  }
}

// Decoded pixels against rgba8 refs (R, G, B, A bytes, top row first), each
// channel within the row's "tol=N" (exact without one).
::testing::AssertionResult SameRgba8(const CorpusRow& row, const Pyramid& loaded, const Bytes& ref) {
  const auto surface = loaded.GetSurface(0);
  if (!surface) return ::testing::AssertionFailure() << "no level 0";
  std::optional<std::string> pixels = Rgba8(*surface->Data(), Notes(row, "bit replication"));
  if (!pixels) {
    const auto rgba = surface->Data()->ConvertCopy(formats::A8B8G8R8);  // bytes R, G, B, A
    if (!rgba) return ::testing::AssertionFailure() << "level 0 does not convert to A8B8G8R8";
    pixels = testing::Tight(*rgba);
  }
  if (pixels->size() != ref.size()) return ::testing::AssertionFailure() << "size differs from " << row.ref;
  std::string want_pixels(ref.begin(), ref.end());
  if (row.container == "PNG") AdjustPngRef(row, &want_pixels);
  const size_t tol_at = row.notes.find("tol=");
  const int tolerance = tol_at == std::string::npos ? 0 : std::stoi(row.notes.substr(tol_at + 4));
  // An X channel is no alpha: whatever the ref's maker put there does not count.
  PixelFormatMeta meta{};
  bool unused_fourth = Notes(row, "X1R5G5B5 data");  // a 16-bit BMP whose top bits are 0: no alpha meant
  if (ParseFormat(surface->Data()->Format(), &meta)) {
    for (const ComponentMeta& c : meta.components) unused_fourth = unused_fourth || c.component == PixelComponent::X;
  }
  for (size_t i = 0; i < ref.size(); ++i) {
    if (unused_fourth && i % 4 == 3) continue;
    const int have = static_cast<unsigned char>((*pixels)[i]), want = static_cast<unsigned char>(want_pixels[i]);
    if (std::abs(have - want) > tolerance) {
      return ::testing::AssertionFailure() << "pixel " << i / 4 << " channel " << i % 4 << ": " << have << " vs "
                                           << want << " (tolerance " << tolerance << ")";
    }
  }
  return ::testing::AssertionSuccess();
}

// Decoded float pixels against rgbaf32 refs (R, G, B, A as 32-bit floats, top
// row first), exactly: the refs hold the half-float values the reader must make.
::testing::AssertionResult SameRgbaF32(const CorpusRow& row, const Pyramid& loaded, const Bytes& ref) {
  const auto surface = loaded.GetSurface(0);
  if (!surface) return ::testing::AssertionFailure() << "no level 0";
  const auto rgba = surface->Data()->ConvertCopy(formats::A32fB32fG32fR32f);  // floats R, G, B, A
  if (!rgba) return ::testing::AssertionFailure() << "level 0 does not convert to A32fB32fG32fR32f";
  const std::string pixels = testing::Tight(*rgba);
  if (pixels.size() != ref.size()) return ::testing::AssertionFailure() << "size differs from " << row.ref;
  for (size_t i = 0; i + 4 <= ref.size(); i += 4) {
    float have = 0, want = 0;
    std::memcpy(&have, pixels.data() + i, 4);
    std::memcpy(&want, ref.data() + i, 4);
    if (have != want) {
      return ::testing::AssertionFailure()
             << "pixel " << i / 16 << " channel " << i / 4 % 4 << ": " << have << " vs " << want;
    }
  }
  return ::testing::AssertionSuccess();
}

const std::map<std::string, RefCheck> kRefChecks = {
    {"payload", SamePayload}, {"rgba8", SameRgba8}, {"rgbaf32", SameRgbaF32}};

// The properties the manifest lists, in its column order.
std::vector<std::string> Properties(Image& im, const Pyramid& p) {
  const char* const types[] = {"surface", "volume", "cube", "array", "cube array"};  // MipmapType order
  const auto type = static_cast<size_t>(im.Type());
  const auto* cube = dynamic_cast<const Cube*>(p.GetMipmap(0).get());
  ull faces = cube == nullptr ? 1 : 0;
  for (unsigned f = 0; cube != nullptr && f < 6; ++f) faces += cube->GetFace(static_cast<CubeFace>(f)) ? 1 : 0;
  std::vector<std::string> have = {type < std::size(types) ? types[type] : "?", ToString(p.Format())};
  for (const ull n : {ull{im.Width()}, ull{im.Height()}, p.Depth(), p.ArrayLength(), faces, p.LevelsCurrent()}) {
    have.push_back(std::to_string(n));
  }
  return have;
}

// Rows whose format column is wrong, with the byte that shows it: the
// maker assumed that pnmtopng keeps 16-bit samples, but these sources hold
// only 8 bits' worth and it stored them with depth 8 (IHDR byte 24); and two
// 32-bit BMP files listed as X8R8G8B8 whose fourth bytes are not all 0
// (pixel 33's is 8), which makes them A8R8G8B8.
struct Erratum {
  const char* file;
  const char* format;
  size_t offset;
  char byte;
};
const Erratum kErrata[] = {
    {"png/netpbm_rgb16.png", "R8G8B8", 24, 8},
    {"png/netpbm_gray16_interlaced.png", "A8", 24, 8},
    {"bmp/pillow_rgb32bf.bmp", "A8R8G8B8", 66 + 33 * 4 + 3, 8},
    {"bmp/pillow_rgb32h52.bmp", "A8R8G8B8", 66 + 33 * 4 + 3, 8},
};

// Refs not compared because their maker got the pixels wrong: it drops one
// pixel of every RLE4 absolute run of odd length (the codes of the file's
// second row add up to its width of 127 only when that pixel is counted).
const char* const kWrongRefs[] = {"bmp/pillow_pal4rle.bmp"};

// Rows the manifest lists as loading that the readers' rules refuse, with the
// bytes in the file that show why and the line the refusal logs: HDR files
// that declare a gamma other than 1, and a GIF87a file holding an extension
// block where an 87a reader expects the image descriptor.
struct Overruled {
  const char* file;
  size_t at;  // where the evidence stands; npos: anywhere
  const char* evidence;
  const char* logged;
};
const Overruled kOverruled[] = {
    {"hdr/im_flat_5x3.hdr", std::string::npos, "\nGAMMA=0.454545\n", "gamma currently not support in hdr image format"},
    {"hdr/im_rle.hdr", std::string::npos, "\nGAMMA=0.454545\n", "gamma currently not support in hdr image format"},
    // Version 87a, and after its 256-entry table a comment extension (21 FE).
    {"gif/pillow_hopper_zero_comment_subblocks.gif", 4, "7", "Sub image out of range"},
    {"gif/pillow_hopper_zero_comment_subblocks.gif", 13 + 768, "\x21\xfe", "Sub image out of range"},
};

class Corpus : public ::testing::TestWithParam<Container> {};

TEST_P(Corpus, FilesMatchTheManifestAndSurviveARoundTrip) {
  const Container& container = GetParam();
  if (!ImageFactory::Instance()->IsRegistered(container.format)) {
    GTEST_SKIP() << "no plugin registered for " << container.name;
  }
  const std::string dir = testing::CorpusDir();
  const std::optional<std::vector<CorpusRow>> rows = testing::CorpusRows(container.name);
  if (!rows) GTEST_SKIP() << "corpus not found at " << dir << " (set LMIMAGE_CORPUS_DIR)";
  ASSERT_FALSE(rows->empty()) << "the manifest lists no " << container.name << " file";

  int loaded = 0, refused = 0, refs = 0;
  for (const CorpusRow& row : *rows) {
    SCOPED_TRACE(row.file);
    const std::optional<Bytes> bytes = testing::ReadFile(dir + "/" + row.file);
    ASSERT_TRUE(bytes);

    testing::LogCapture log;
    const auto image = testing::Decode(*bytes);
    if (Notes(row, "no log line")) {
      EXPECT_TRUE(log.lines.empty()) << log.All();
    }
    if (row.notes.rfind("logs ", 0) == 0) {  // notes "logs TEXT; ..." name a text that must be logged
      const std::string logged = row.notes.substr(5, row.notes.find(';') - 5);
      EXPECT_NE(log.All().find(logged), std::string::npos) << "expected \"" << logged << "\" in:\n" << log.All();
    }
    const Overruled* overruled = nullptr;
    for (const Overruled& o : kOverruled) {
      if (row.file != o.file) continue;
      overruled = &o;
      const std::string file(bytes->begin(), bytes->end()), evidence(o.evidence);
      ASSERT_TRUE(o.at == std::string::npos ? file.find(evidence) != std::string::npos
                                            : file.compare(o.at, evidence.size(), evidence) == 0)
          << "the file no longer shows why it is refused";
      EXPECT_NE(log.All().find(o.logged), std::string::npos) << log.All();
    }
    if (row.expect == "reject" || overruled != nullptr) {
      EXPECT_EQ(image, Image::Null);
      ++refused;
      continue;
    }
    ASSERT_NE(image, Image::Null) << log.All();
    ++loaded;
    if (Notes(row, "warning expected")) {
      ASSERT_EQ(log.lines.size(), 1u) << log.All();
      EXPECT_EQ(log.lines[0].severity, log::Severity::Warning);
      EXPECT_NE(log.lines[0].text.find(container.warning), std::string::npos) << log.All();
    }

    const auto pyramid = image->GetPyramid(false);
    ASSERT_TRUE(pyramid);
    std::vector<std::string> want = {row.type,  row.format, row.width, row.height,
                                     row.depth, row.layers, row.faces, row.levels};
    for (const Erratum& e : kErrata) {
      if (row.file != e.file) continue;
      ASSERT_EQ(bytes->at(e.offset), e.byte) << "the erratum no longer holds";
      want[1] = e.format;
    }
    const std::vector<std::string> have = Properties(*image, *pyramid);
    const char* names[] = {"type", "format", "width", "height", "depth", "layers", "faces", "levels"};
    for (size_t i = 0; i < want.size(); ++i) {
      if (want[i] != "-") {
        EXPECT_EQ(have[i], want[i]) << names[i];
      }
    }
    // Notes that name an origin or an alpha pyramid, and what every loaded file must agree on.
    if (Notes(row, "origin BottomUp")) {
      EXPECT_EQ(image->Origin(), ImageOrigin::BottomUp);
    }
    EXPECT_EQ(std::make_tuple(pyramid->Type(), image->IsArray(), image->HasAlphaPyramid()),
              std::make_tuple(image->Type(), row.type == "array", Notes(row, "HasAlphaPyramid true")));
    if (image->HasAlphaPyramid()) {
      const auto plane = image->GetPyramid(true)->GetSurface(0);
      EXPECT_EQ(std::make_tuple(plane->Format(), plane->Width(), plane->Height()),
                std::make_tuple(formats::A8, ull{image->Width()}, ull{image->Height()}));
    }
    const bool wrong_ref = std::find(std::begin(kWrongRefs), std::end(kWrongRefs), row.file) != std::end(kWrongRefs);
    if (row.ref_kind != "-" && !wrong_ref) {
      const auto check = kRefChecks.find(row.ref_kind);
      const std::optional<Bytes> ref = testing::ReadFile(dir + "/" + row.ref);
      ASSERT_NE(check, kRefChecks.end()) << "no comparison for ref kind " << row.ref_kind;
      ASSERT_TRUE(ref) << row.ref;
      EXPECT_TRUE(check->second(row, *pyramid, *ref));
      ++refs;
    }

    const Bytes file = testing::Encode(*pyramid, image->Format());
    if (!container.whole_pyramid) {
      // Only the first surface goes back; a volume of 3-D blocks has none.
      const std::shared_ptr<Surface> first = pyramid->GetSurface(0, 0);
      EXPECT_EQ(file.empty(), first == nullptr) << log.All();
      if (!first || file.empty()) continue;
      const auto again = testing::Decode(file);
      ASSERT_NE(again, Image::Null);
      const auto back = again->GetPyramid(false)->GetSurface(0)->Data();
      const SurfaceData& front = *first->Data();
      if (container.lossy) {
        EXPECT_EQ(std::make_tuple(back->Format(), back->Width(), back->Height()),
                  std::make_tuple(front.Format(), front.Width(), front.Height()));
      } else if (back->Format() != front.Format()) {
        // A writer that converts the format (PNG writes A1 as 8-bit grey) must keep the picture.
        EXPECT_TRUE(Rgba8(*back)) << ToString(back->Format());
        EXPECT_EQ(Rgba8(*back), Rgba8(front)) << "the picture changed on the round trip";
      } else {
        EXPECT_TRUE(testing::Tight(*back) == testing::Tight(front)) << "the first surface changed on the round trip";
      }
      continue;
    }
    ASSERT_FALSE(file.empty()) << log.All();
    const auto again = testing::Decode(file);
    ASSERT_NE(again, Image::Null);
    const auto back = again->GetPyramid(false);
    EXPECT_EQ(Properties(*again, *back), have);
    EXPECT_TRUE(LevelBytes(*back, 0) == LevelBytes(*pyramid, 0)) << "level 0 changed on the round trip";
  }
  std::cout << "[ corpus   ] " << rows->size() << " " << container.name << " rows: " << loaded << " loaded (" << refs
            << " compared with their ref), " << refused
            << " refused as expected; round trips checked for every loaded file\n";
}

INSTANTIATE_TEST_SUITE_P(Containers, Corpus, ::testing::ValuesIn(kContainers),
                         [](const ::testing::TestParamInfo<Container>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace lumo::image
