// Files on disk (the shared corpus and its manifest) and in memory (bytes
// through the image factory).
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lumo/image/image_factory.h"
#include "support/bytes.h"

namespace lumo::image::testing {

// The whole file, or nothing when it cannot be read.
std::optional<Bytes> ReadFile(const std::string& path);

// The corpus folder: the LMIMAGE_CORPUS_DIR compile definition.
std::string CorpusDir();

// One row of MANIFEST.tsv; "-" marks an unknown or absent value.
struct CorpusRow {
  std::string file, origin, container, type, format, width, height, depth, layers, faces, levels, ref, ref_kind,
      expect, notes;
};

// The manifest rows of one container (case-insensitive), in manifest order;
// nothing when the manifest cannot be read.
std::optional<std::vector<CorpusRow>> CorpusRows(const std::string& container);

// Decodes an exactly-sized copy of `bytes` as `format` (UNKNOWN: detected by the factory).
std::shared_ptr<Image> Decode(const Bytes& bytes, ImageFormat format = ImageFormat::UNKNOWN);
// The pyramid written as `format`; empty when the writer refuses.
Bytes Encode(const Pyramid& pyramid, ImageFormat format);

// Writes `pyramid` as `format` (the file goes to `file` when given), reads it
// back and compares every level: kind, format, layers, extent and the bytes of
// every element; writing what was read must give the same file.
::testing::AssertionResult RoundTrips(const Pyramid& pyramid, ImageFormat format, Bytes* file = nullptr);

}  // namespace lumo::image::testing
