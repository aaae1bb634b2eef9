// Real files from the shared corpus, one container at a time: every row of
// MANIFEST.tsv for the container is loaded through the factory and checked
// against the manifest (properties, reference bytes, refusals, the log lines,
// origin and alpha pyramid its notes call for), then written back in its own
// format, loaded again and compared with what was first loaded.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

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

const Container* Find(const std::string& name) {
  for (const Container& c : kContainers) {
    if (name == c.name) return &c;
  }
  return nullptr;
}

// How a row's ref file is compared with the loaded image, by the manifest's ref_kind.
// The picture containers will add "rgba8" and "rgbaf32" (decoded pixels, top row first).
using RefCheck = ::testing::AssertionResult (*)(const CorpusRow& row, const Pyramid& loaded, const Bytes& ref);

::testing::AssertionResult SamePayload(const CorpusRow& row, const Pyramid& loaded, const Bytes& ref) {
  if (LevelBytes(loaded, 0, false) == std::string(ref.begin(), ref.end())) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "level 0 bytes differ from " << row.ref;
}

// Decoded pixels against rgba8 refs (R, G, B, A bytes, top row first), each
// channel within the row's "tol=N" (exact without one).
::testing::AssertionResult SameRgba8(const CorpusRow& row, const Pyramid& loaded, const Bytes& ref) {
  const auto surface = loaded.GetSurface(0);
  const auto rgba = surface ? surface->Data()->ConvertCopy(formats::A8B8G8R8) : nullptr;  // bytes R, G, B, A
  if (!rgba) return ::testing::AssertionFailure() << "level 0 does not convert to A8B8G8R8";
  const std::string pixels = testing::Tight(*rgba);
  if (pixels.size() != ref.size()) return ::testing::AssertionFailure() << "size differs from " << row.ref;
  const size_t tol_at = row.notes.find("tol=");
  const int tolerance = tol_at == std::string::npos ? 0 : std::stoi(row.notes.substr(tol_at + 4));
  for (size_t i = 0; i < ref.size(); ++i) {
    const int have = static_cast<unsigned char>(pixels[i]), want = static_cast<unsigned char>(ref[i]);
    if (std::abs(have - want) > tolerance) {
      return ::testing::AssertionFailure() << "pixel " << i / 4 << " channel " << i % 4 << ": " << have << " vs "
                                           << want << " (tolerance " << tolerance << ")";
    }
  }
  return ::testing::AssertionSuccess();
}

const std::map<std::string, RefCheck> kRefChecks = {{"payload", SamePayload}, {"rgba8", SameRgba8}};

std::string TypeName(MipmapType type) {
  const char* const names[] = {"surface", "volume", "cube", "array", "cube array"};  // MipmapType order
  const auto i = static_cast<size_t>(type);
  return i < std::size(names) ? names[i] : "?";
}

ull Faces(const Pyramid& p) {
  const auto* cube = dynamic_cast<const Cube*>(p.GetMipmap(0).get());
  if (cube == nullptr) return 1;
  ull faces = 0;
  for (unsigned f = 0; f < 6; ++f) faces += cube->GetFace(static_cast<CubeFace>(f)) ? 1 : 0;
  return faces;
}

// The properties the manifest lists, in its column order.
std::vector<std::string> Properties(Image& im, const Pyramid& p) {
  return {TypeName(im.Type()),        ToString(p.Format()),
          std::to_string(im.Width()), std::to_string(im.Height()),
          std::to_string(p.Depth()),  std::to_string(p.ArrayLength()),
          std::to_string(Faces(p)),   std::to_string(p.LevelsCurrent())};
}

bool Notes(const CorpusRow& row, const char* text) { return row.notes.find(text) != std::string::npos; }

// The text that notes beginning "logs TEXT" (up to a ';') say is logged, or "".
std::string LoggedText(const CorpusRow& row) {
  if (row.notes.rfind("logs ", 0) != 0) return "";
  return row.notes.substr(5, row.notes.find(';') - 5);
}

class Corpus : public ::testing::TestWithParam<const char*> {};

TEST_P(Corpus, FilesMatchTheManifestAndSurviveARoundTrip) {
  const Container* container = Find(GetParam());
  ASSERT_NE(container, nullptr) << GetParam() << " is not a container of the manifest";
  if (!ImageFactory::Instance()->IsRegistered(container->format)) {
    GTEST_SKIP() << "no plugin registered for " << container->name;
  }
  const std::string dir = testing::CorpusDir();
  const std::optional<std::vector<CorpusRow>> rows = testing::CorpusRows(container->name);
  if (!rows) GTEST_SKIP() << "corpus not found at " << dir << " (set LMIMAGE_CORPUS_DIR)";
  ASSERT_FALSE(rows->empty()) << "the manifest lists no " << container->name << " file";

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
    if (const std::string logged = LoggedText(row); !logged.empty()) {
      EXPECT_NE(log.All().find(logged), std::string::npos) << "expected \"" << logged << "\" in:\n" << log.All();
    }
    if (row.expect == "reject") {
      EXPECT_EQ(image, Image::Null);
      ++refused;
      continue;
    }
    ASSERT_NE(image, Image::Null) << log.All();
    ++loaded;
    if (Notes(row, "warning expected")) {
      ASSERT_EQ(log.lines.size(), 1u) << log.All();
      EXPECT_EQ(log.lines[0].severity, log::Severity::Warning);
      EXPECT_NE(log.lines[0].text.find(container->warning), std::string::npos) << log.All();
    }

    const auto pyramid = image->GetPyramid(false);
    ASSERT_TRUE(pyramid);
    const std::vector<std::string> want = {row.type,  row.format, row.width, row.height,
                                           row.depth, row.layers, row.faces, row.levels};
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
    if (row.ref_kind != "-") {
      const auto check = kRefChecks.find(row.ref_kind);
      const std::optional<Bytes> ref = testing::ReadFile(dir + "/" + row.ref);
      ASSERT_NE(check, kRefChecks.end()) << "no comparison for ref kind " << row.ref_kind;
      ASSERT_TRUE(ref) << row.ref;
      EXPECT_TRUE(check->second(row, *pyramid, *ref));
      ++refs;
    }

    const Bytes file = testing::Encode(*pyramid, image->Format());
    if (!container->whole_pyramid) {
      // Only the first surface goes back; a volume of 3-D blocks has none.
      const std::shared_ptr<Surface> first = pyramid->GetSurface(0, 0);
      EXPECT_EQ(file.empty(), first == nullptr) << log.All();
      if (!first || file.empty()) continue;
      const auto again = testing::Decode(file);
      ASSERT_NE(again, Image::Null);
      if (container->lossy) {
        const auto back = again->GetPyramid(false)->GetSurface(0)->Data();
        EXPECT_EQ(std::make_tuple(back->Format(), back->Width(), back->Height()),
                  std::make_tuple(first->Data()->Format(), first->Data()->Width(), first->Data()->Height()));
        continue;
      }
      EXPECT_TRUE(LevelBytes(*again->GetPyramid(false), 0) == testing::Tight(*first->Data()))
          << "the first surface changed on the round trip";
      continue;
    }
    ASSERT_FALSE(file.empty()) << log.All();
    const auto again = testing::Decode(file);
    ASSERT_NE(again, Image::Null);
    const auto back = again->GetPyramid(false);
    EXPECT_EQ(Properties(*again, *back), have);
    EXPECT_TRUE(LevelBytes(*back, 0) == LevelBytes(*pyramid, 0)) << "level 0 changed on the round trip";
  }
  std::cout << "[ corpus   ] " << rows->size() << " " << container->name << " rows: " << loaded << " loaded (" << refs
            << " compared with their ref), " << refused
            << " refused as expected; round trips checked for every loaded file\n";
}

// One name per container whose plugin has landed.
INSTANTIATE_TEST_SUITE_P(Containers, Corpus, ::testing::Values("DDS", "KTX", "PVR", "PKM", "ASTC", "JPEG"),
                         [](const ::testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

}  // namespace
}  // namespace lumo::image
