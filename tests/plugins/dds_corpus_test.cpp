// Real DDS files from the shared corpus: each row of MANIFEST.tsv whose
// container is DDS is loaded through the factory and checked against the
// manifest (properties, stored bytes of level 0), then written back as DDS,
// loaded again and compared with what was first loaded.
#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"

#ifndef LMIMAGE_CORPUS_DIR
#define LMIMAGE_CORPUS_DIR "../shared/corpus"
#endif

namespace lumo::image {
namespace {

using ull = unsigned long long;

struct Row {
  std::string file, container, type, format, width, height, depth, layers, faces, levels, ref, ref_kind, expect, notes;
};

bool ReadFile(const std::string& path, std::string* out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  out->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return true;
}

std::vector<std::string> Split(const std::string& line) {
  std::vector<std::string> cells;
  std::stringstream stream(line);
  std::string cell;
  while (std::getline(stream, cell, '\t')) cells.push_back(cell);
  return cells;
}

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::vector<Row> DDSRows(const std::string& manifest) {
  std::vector<Row> rows;
  std::stringstream stream(manifest);
  std::string line;
  std::getline(stream, line);  // column names
  while (std::getline(stream, line)) {
    const std::vector<std::string> c = Split(line);
    if (c.size() < 15 || Lower(c[2]) != "dds") continue;
    rows.push_back({c[0], c[2], c[3], c[4], c[5], c[6], c[7], c[8], c[9], c[10], c[11], c[12], c[13], c[14]});
  }
  return rows;
}

// Rows without padding, as a file stores them.
std::string Tight(const SurfaceData& s) {
  const ull row = BytesPerRow(s.Format(), s.Width(), 0);
  if (IsCompressed(s.Format()) || row == s.BytesPerRow()) return std::string(s.Buffer(), s.Size());
  std::string out;
  for (ull y = 0; y < s.Height(); ++y) out.append(s.Buffer() + y * s.BytesPerRow(), row);
  return out;
}

// Level 0, element 0 (a volume: every slice of level 0).
std::string Level0Payload(const Pyramid& p) {
  const auto level = p.GetMipmap(0);
  const ull count = level->Type() == MipmapType::Volume ? level->GetSurfaceCount() : 1;
  std::string bytes;
  for (ull i = 0; i < count; ++i) bytes += Tight(*level->GetSurface(i)->Data());
  return bytes;
}

// Every element of level 0, in stored order.
std::string Level0All(const Pyramid& p) {
  const auto level = p.GetMipmap(0);
  std::string bytes;
  for (ull i = 0; i < level->GetSurfaceCount(); ++i) bytes += Tight(*level->GetSurface(i)->Data());
  return bytes;
}

const char* TypeName(MipmapType type) {
  switch (type) {
    case MipmapType::Surface:
      return "surface";
    case MipmapType::Volume:
      return "volume";
    case MipmapType::Cube:
      return "cube";
    case MipmapType::SurfaceArray:
      return "array";
    case MipmapType::CubeArray:
      return "cube array";
  }
  return "?";
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

struct LogCapture {
  std::vector<std::pair<log::Severity, std::string>> lines;
  LogCapture() {
    log::SetSink([this](unsigned, log::Severity s, int, const std::string& t) { lines.emplace_back(s, t); });
  }
  ~LogCapture() { log::SetSink({}); }
};

TEST(DDSCorpus, FilesMatchTheManifestAndSurviveARoundTrip) {
  const std::string dir = LMIMAGE_CORPUS_DIR;
  std::string manifest;
  if (!ReadFile(dir + "/MANIFEST.tsv", &manifest)) {
    GTEST_SKIP() << "corpus not found at " << dir << " (set LMIMAGE_CORPUS_DIR)";
  }
  const std::vector<Row> rows = DDSRows(manifest);
  ASSERT_FALSE(rows.empty()) << "the manifest lists no DDS file";

  int loaded = 0, refused = 0, refs = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file);
    std::string bytes;
    ASSERT_TRUE(ReadFile(dir + "/" + row.file, &bytes));

    LogCapture log;
    const auto image = ImageFactory::Instance()->Create(bytes.data(), bytes.size());
    if (row.notes.find("no log line") != std::string::npos) {
      EXPECT_TRUE(log.lines.empty());
    }
    if (row.expect == "reject") {
      EXPECT_EQ(image, Image::Null);
      ++refused;
      continue;
    }
    ASSERT_NE(image, Image::Null);
    ++loaded;
    if (row.notes.find("warning expected") != std::string::npos) {
      ASSERT_EQ(log.lines.size(), 1u);
      EXPECT_EQ(log.lines[0].first, log::Severity::Warning);
      EXPECT_NE(log.lines[0].second.find("memory overflow"), std::string::npos);
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
    if (row.ref_kind == "payload") {
      std::string ref;
      ASSERT_TRUE(ReadFile(dir + "/" + row.ref, &ref));
      EXPECT_TRUE(Level0Payload(*pyramid) == ref) << "level 0 bytes differ from " << row.ref;
      ++refs;
    }

    size_t size = 0;
    const auto file = ImageFactory::Instance()->Serialize(ImageFormat::DDS, pyramid.get(), &size, 0);
    ASSERT_TRUE(file);
    const auto again = ImageFactory::Instance()->Create(file.get(), size);
    ASSERT_NE(again, Image::Null);
    const auto back = again->GetPyramid(false);
    EXPECT_EQ(Properties(*again, *back), have);
    EXPECT_TRUE(Level0All(*back) == Level0All(*pyramid)) << "level 0 changed on the round trip";
  }
  std::cout << "[ corpus   ] " << rows.size() << " DDS rows: " << loaded << " loaded (" << refs
            << " compared with their payload), " << refused
            << " refused as expected; round trips checked for every loaded file\n";
}

}  // namespace
}  // namespace lumo::image
