#include "file_io.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <mutex>
#include <random>
#include <system_error>
#include <utility>
#include <vector>

#if !defined(_WIN32)
#  include <unistd.h>
#endif

#include "cli.h"
#include "lumo/log/log.h"

namespace lumo::image::cli {
namespace {

std::string Reason(int error) { return error != 0 ? std::strerror(error) : "unknown error"; }

// Closes on every path out of a function.
struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

std::string RandomSuffix(std::mt19937& random) {
  static const char kAlphabet[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::uniform_int_distribution<size_t> pick(0, sizeof kAlphabet - 2);
  std::string suffix;
  for (int i = 0; i < 6; ++i) suffix += kAlphabet[pick(random)];
  return suffix;
}

// Creates a new file next to `path` (never opens an existing one) and returns it with its name.
FilePtr CreateTemporary(const std::string& path, std::string* name) {
  std::mt19937 random{std::random_device{}()};
  int error = 0;
  for (int attempt = 0; attempt < 100; ++attempt) {
    *name = path + ".tmp-" + RandomSuffix(random);
    errno = 0;
    // "x": fail rather than reuse a file someone else created meanwhile.
    if (std::FILE* file = std::fopen(name->c_str(), "wbx")) return FilePtr(file);
    error = errno;
    if (error != EEXIST) break;
  }
  throw Failure(path, "cannot write: " + Reason(error));
}

}  // namespace

FileBytes ReadFile(const std::string& path) {
  errno = 0;
  FilePtr file(std::fopen(path.c_str(), "rb"));
  if (!file) throw Failure(path, "cannot read: " + Reason(errno));

  // The size is only a hint: pipes and growing files report none or a wrong one.
  std::error_code size_error;
  const std::uintmax_t hint = std::filesystem::file_size(path, size_error);
  auto bytes = std::make_shared<std::vector<char>>();
  bytes->reserve(size_error ? 1 << 16 : static_cast<size_t>(hint) + 1);

  char chunk[1 << 16];
  for (;;) {
    const size_t got = std::fread(chunk, 1, sizeof chunk, file.get());
    bytes->insert(bytes->end(), chunk, chunk + got);
    if (got < sizeof chunk) break;
  }
  // A directory opens on some systems and only fails here (EISDIR).
  if (std::ferror(file.get())) throw Failure(path, "cannot read: " + Reason(errno));

  FileBytes result;
  result.size = bytes->size();
  // Never hand out a null pointer, even for an empty file.
  if (bytes->empty()) bytes->push_back('\0');
  // Aliasing constructor: the pointer shares ownership of the vector, without a copy.
  result.data = std::shared_ptr<char>(bytes, bytes->data());
  return result;
}

void WriteFileAtomically(const std::string& path, const char* data, size_t size) {
  std::string temporary;
  FilePtr file = CreateTemporary(path, &temporary);
  const auto fail = [&](int error) {
    file.reset();
    std::remove(temporary.c_str());
    return Failure(path, "cannot write: " + Reason(error));
  };

  errno = 0;
  if (size != 0 && std::fwrite(data, 1, size, file.get()) != size) throw fail(errno);
  if (std::fflush(file.get()) != 0) throw fail(errno);
#if !defined(_WIN32)
  // Without this a crash soon after the rename can leave an empty file behind.
  if (::fsync(::fileno(file.get())) != 0) throw fail(errno);
#endif
  // Some systems report a full disk only when the file is closed.
  if (std::fclose(file.release()) != 0) {
    const int error = errno;
    std::remove(temporary.c_str());
    throw Failure(path, "cannot write: " + Reason(error));
  }

  std::error_code error;
  std::filesystem::rename(temporary, path, error);
  if (error) {
    std::remove(temporary.c_str());
    throw Failure(path, "cannot write: " + error.message());
  }
}

void RefuseSameFile(const std::string& input, const std::string& output) {
  std::error_code error;  // set when either path does not exist: then they cannot be one file
  if (std::filesystem::equivalent(input, output, error) && !error) {
    throw UsageError(output, "is the input file; choose another output name");
  }
}

namespace {
thread_local LogCapture* innermost_capture = nullptr;
std::mutex uncaptured_mutex;
}  // namespace

struct LogRouter {
  static void Line(unsigned int channel, log::Severity severity, int level, const std::string& text) {
    if (LogCapture* capture = innermost_capture) {
      if (severity == log::Severity::Error) capture->errors_.push_back(text);
      if (severity == log::Severity::Warning) capture->warnings_.push_back(text);
      return;
    }
    // As the library's own sink prints it; negative levels are trace output.
    if (severity == log::Severity::Message && level < 0) return;
    const char* kind = severity == log::Severity::Error     ? "error"
                       : severity == log::Severity::Warning ? "warning"
                                                            : "message";
    std::lock_guard<std::mutex> lock(uncaptured_mutex);
    std::fprintf(stderr, "[lmimage:%u] %s: %s\n", channel, kind, text.c_str());
  }
};

void InstallLogRouting() {
  static std::once_flag once;
  std::call_once(once, [] { log::SetSink(&LogRouter::Line); });
}

LogCapture::LogCapture() : outer_(innermost_capture) {
  InstallLogRouting();
  innermost_capture = this;
}

LogCapture::~LogCapture() { innermost_capture = outer_; }

std::string LogCapture::Detail() const {
  if (!errors_.empty()) return ": " + errors_.back();
  if (!warnings_.empty()) return ": " + warnings_.back();
  return std::string();
}

std::string MipmapTypeName(MipmapType type) {
  switch (type) {
    case MipmapType::Surface:
      return "Surface";
    case MipmapType::Volume:
      return "Volume";
    case MipmapType::Cube:
      return "Cube";
    case MipmapType::SurfaceArray:
      return "SurfaceArray";
    case MipmapType::CubeArray:
      return "CubeArray";
  }
  return "type " + std::to_string(static_cast<unsigned>(type));
}

LoadedImage LoadImage(const std::string& path) {
  LoadedImage loaded;
  loaded.bytes = ReadFile(path);
  ImageFactory* factory = ImageFactory::Instance();
  const ImageFormat format = factory->GetFormat(loaded.bytes.data.get(), loaded.bytes.size);
  if (format == ImageFormat::UNKNOWN) throw Failure(path, "not an image file of a known format");

  LogCapture log;
  // The shared-buffer overload: a plugin that views the bytes keeps them alive without a copy.
  loaded.image = factory->Create(format, loaded.bytes.data, loaded.bytes.size);
  const std::string container = ImageFactory::FormatToString(format);
  if (!loaded.image) throw Failure(path, "cannot decode as " + container + log.Detail());
  loaded.pyramid = loaded.image->GetPyramid(false);
  if (!loaded.pyramid || loaded.pyramid->LevelsCurrent() == 0 || !loaded.pyramid->GetMipmap(0)) {
    throw Failure(path, container + " file holds no pixels" + log.Detail());
  }
  loaded.warnings = log.Errors();
  loaded.warnings.insert(loaded.warnings.end(), log.Warnings().begin(), log.Warnings().end());
  return loaded;
}

void PrintDiagnostic(std::ostream& err, const std::string& verb, const std::string& subject, const std::string& text) {
  PrintError(err, verb, subject, text);
}

}  // namespace lumo::image::cli
