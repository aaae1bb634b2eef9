#include "support/files.h"

#include <cctype>
#include <fstream>
#include <iterator>
#include <sstream>
#include <tuple>

#include "lumo/image/mipmaps.h"
#include "support/descriptors.h"
#include "support/surfaces.h"

#ifndef LMIMAGE_CORPUS_DIR
#define LMIMAGE_CORPUS_DIR "../shared/corpus"
#endif

namespace lumo::image::testing {
namespace {

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::vector<std::string> Cells(const std::string& line) {
  std::vector<std::string> cells;
  std::stringstream stream(line);
  for (std::string cell; std::getline(stream, cell, '\t');) cells.push_back(cell);
  return cells;
}

}  // namespace

std::optional<Bytes> ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string CorpusDir() { return LMIMAGE_CORPUS_DIR; }

std::optional<std::vector<CorpusRow>> CorpusRows(const std::string& container) {
  const std::optional<Bytes> manifest = ReadFile(CorpusDir() + "/MANIFEST.tsv");
  if (!manifest) return std::nullopt;
  std::vector<CorpusRow> rows;
  std::stringstream stream(std::string(manifest->begin(), manifest->end()));
  std::string line;
  std::getline(stream, line);  // column names
  while (std::getline(stream, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::vector<std::string> c = Cells(line);
    if (c.size() < 15 || Lower(c[2]) != Lower(container)) continue;
    rows.push_back({c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7], c[8], c[9], c[10], c[11], c[12], c[13], c[14]});
  }
  return rows;
}

std::shared_ptr<Image> Decode(const Bytes& bytes, ImageFormat format) {
  ImageFactory* factory = ImageFactory::Instance();
  return format == ImageFormat::UNKNOWN ? factory->Create(Shared(bytes), bytes.size())
                                        : factory->Create(format, Shared(bytes), bytes.size());
}

Bytes Encode(const Pyramid& pyramid, ImageFormat format) {
  size_t size = 0;
  const std::shared_ptr<char> file = ImageFactory::Instance()->Serialize(format, &pyramid, &size, 0);
  return file ? Bytes(file.get(), file.get() + size) : Bytes();
}

::testing::AssertionResult RoundTrips(const Pyramid& pyramid, ImageFormat format, Bytes* file) {
  const Bytes written = Encode(pyramid, format);
  if (file != nullptr) *file = written;
  const auto image = Decode(written, format);
  if (written.empty() || !image) return ::testing::AssertionFailure() << "not written or not read back";
  const auto back = image->GetPyramid(false);
  const auto shape = [](const Pyramid& p) {
    return std::make_tuple(p.Type(), V(p.Format()), p.LevelsCurrent(), p.ArrayLength());
  };
  if (shape(*back) != shape(pyramid)) return ::testing::AssertionFailure() << "kind, format, levels or layers differ";
  for (unsigned long long level = 0; level < back->LevelsCurrent(); ++level) {
    const auto a = pyramid.GetMipmap(level), b = back->GetMipmap(level);
    if (std::make_tuple(b->Width(), b->Height(), b->Depth()) != std::make_tuple(a->Width(), a->Height(), a->Depth()) ||
        LevelBytes(*back, level) != LevelBytes(pyramid, level)) {
      return ::testing::AssertionFailure() << "level " << level << " differs";
    }
  }
  if (Encode(*back, format) != written) return ::testing::AssertionFailure() << "written again, the file differs";
  return ::testing::AssertionSuccess();
}

}  // namespace lumo::image::testing
