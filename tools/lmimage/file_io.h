// Files for the verbs: whole-file reading and atomic writing (the library
// itself does no file I/O), decoding an image file, and capturing the
// library's log lines so that stderr keeps one line per problem.
// Failures throw the tool's Error, naming the file.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "lumo/image/image_factory.h"

namespace lumo::image::cli {

struct FileBytes {
  // Writable and never null; a decoded image may keep sharing it.
  std::shared_ptr<char> data;
  size_t size = 0;
};

// Throws a Failure ("cannot read: REASON") naming the path.
FileBytes ReadFile(const std::string& path);

// Writes PATH.tmp-XXXXXX in the same folder, then renames it over PATH, so
// PATH is either untouched or complete. Throws a Failure ("cannot write:
// REASON") naming the path; the temporary file is removed on failure.
void WriteFileAtomically(const std::string& path, const char* data, size_t size);

// Throws a usage Error naming `output` when both paths exist and are the same
// file (also through links), so an input is never overwritten by accident.
void RefuseSameFile(const std::string& input, const std::string& output);

// While alive, the library's error and warning lines logged on this thread are
// collected instead of printed (they would add lines to stderr); other lines
// are dropped. Captures nest, and threads capture independently: the first
// capture installs one process-wide log sink that hands each line to the
// innermost capture of the logging thread, or prints it as the library would.
// Create the first capture (or call InstallLogRouting) before starting threads.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  const std::vector<std::string>& Errors() const { return errors_; }
  const std::vector<std::string>& Warnings() const { return warnings_; }
  // ": TEXT" with the last error (else warning) text, or "".
  std::string Detail() const;

 private:
  friend struct LogRouter;
  LogCapture* outer_;
  std::vector<std::string> errors_;
  std::vector<std::string> warnings_;
};

// Installs the sink described at LogCapture; later calls do nothing.
void InstallLogRouting();

struct LoadedImage {
  FileBytes bytes;  // the image may view these bytes
  std::shared_ptr<Image> image;
  std::shared_ptr<Pyramid> pyramid;   // never null, at least one level
  std::vector<std::string> warnings;  // the library's, e.g. a truncated mip chain
};

// "Surface", "Volume", "Cube", "SurfaceArray", "CubeArray".
std::string MipmapTypeName(MipmapType type);

// Reads and decodes a file of any registered format. Throws a Failure naming
// the path when it cannot be read, is of no known format or does not decode.
LoadedImage LoadImage(const std::string& path);

// One extra line on `err` in the tool's error layout ("lmimage: VERB: 'SUBJECT':
// TEXT"), for verbs that go on after a problem.
void PrintDiagnostic(std::ostream& err, const std::string& verb, const std::string& subject, const std::string& text);

}  // namespace lumo::image::cli
