// lmimage convert: read image files, run them through the convert pipeline
// (pipeline.h) and write them in the container that the output's extension
// names: one IN OUT pair, or many files on threads (batch.h).
#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#if !defined(_WIN32)
#  include <unistd.h>
#endif

#include "batch.h"
#include "file_io.h"
#include "format_args.h"
#include "lumo/image/image_factory.h"
#include "pipeline.h"
#include "progress.h"
#include "verbs.h"

namespace lumo::image::cli {
namespace {

std::string Plural(unsigned long long count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// Describes the bytes as they will read back, so a container that keeps only
// level 0 does not get reported with the whole chain.
std::string Summary(const std::string& path, ImageFormat container, const std::shared_ptr<char>& file, size_t size,
                    const Pyramid& written) {
  const Pyramid* shown = &written;
  std::shared_ptr<Pyramid> reread;
  {
    LogCapture quiet;
    const std::shared_ptr<Image> image = ImageFactory::Instance()->Create(container, file, size);
    if (image) reread = image->GetPyramid(false);
  }
  if (reread && reread->LevelsCurrent() != 0) shown = reread.get();
  return "wrote " + path + ": " + ImageFactory::FormatToString(container) + ", " + FormatName(shown->Format()) + ", " +
         std::to_string(shown->Width()) + "x" + std::to_string(shown->Height()) + ", " +
         Plural(shown->LevelsCurrent(), "level") + ", " + std::to_string(size) + " bytes";
}

unsigned ParseJobs(const Invocation& invocation) {
  if (!invocation.Has("jobs")) return std::max(1u, std::thread::hardware_concurrency());
  const std::string& text = invocation.Value("jobs");
  if (text.empty() || text.size() > 4 || text.find_first_not_of("0123456789") != std::string::npos ||
      std::stoul(text) == 0 || std::stoul(text) > 1024) {
    throw UsageError(text, "--jobs needs a whole number from 1 to 1024");
  }
  return static_cast<unsigned>(std::stoul(text));
}

ProgressMode ChooseMode(const Invocation& invocation) {
  if (invocation.Has("quiet")) {
    if (invocation.Has("verbose")) throw UsageError("--quiet", "cannot be combined with --verbose");
    return ProgressMode::kQuiet;
  }
  if (invocation.Has("verbose")) return ProgressMode::kFileLines;
#if !defined(_WIN32)
  if (invocation.out == &std::cout && ::isatty(STDOUT_FILENO)) return ProgressMode::kStatusLine;
#endif
  return ProgressMode::kFileLines;
}

// The single-file form: IN OUT, one line describing what was written.
int RunSingle(const Invocation& invocation) {
  if (invocation.operands.size() != 2) throw UsageError("expects exactly two files: IN OUT");
  const std::string& input = invocation.operands[0];
  const std::string& output = invocation.operands[1];

  // Every usage error is found before the input is read.
  const ImageFormat container =
      ContainerForExtension(std::filesystem::path(output).extension().string(), output);
  const PipelineOptions options = ParsePipelineOptions(invocation, container);
  // Checked like the batch form's, so that one command line suits both.
  ParseJobs(invocation);
  ChooseMode(invocation);
  RefuseSameFile(input, output);

  const ConvertedImage converted = ConvertImage(input, output, container, options);
  for (const std::string& warning : converted.warnings) {
    PrintDiagnostic(std::cerr, invocation.verb->name, input, "warning: " + warning);
  }
  const std::string summary = Summary(output, container, converted.file, converted.size, *converted.pyramid);
  WriteFileAtomically(output, converted.file.get(), converted.size);
  if (!invocation.Has("quiet")) *invocation.out << summary << '\n';
  return kExitOk;
}

// Many files: every usage error first, then each file on its own; one file's
// failure is reported and the others still convert.
int RunBatch(const Invocation& invocation) {
  BatchRequest request;
  request.operands = invocation.operands;
  request.recursive = invocation.Has("recursive");
  if (invocation.Has("file-list")) request.file_list = invocation.Value("file-list");
  if (invocation.Has("output-dir")) request.output_dir = invocation.Value("output-dir");
  if (!invocation.Has("to")) {
    throw UsageError("--to", "is needed to name the output container of several inputs (e.g. --to dds)");
  }
  request.extension = invocation.Value("to");
  if (request.extension.empty() || request.extension.find('/') != std::string::npos) {
    throw UsageError(request.extension, "--to needs a file extension such as dds");
  }
  if (request.extension[0] != '.') request.extension.insert(0, ".");
  const ImageFormat container = ContainerForExtension(request.extension, request.extension);
  const PipelineOptions options = ParsePipelineOptions(invocation, container);
  const unsigned threads = ParseJobs(invocation);
  const ProgressMode mode = ChooseMode(invocation);
  const bool force = invocation.Has("force");
  const std::vector<Job> jobs = PlanJobs(request);

  InstallLogRouting();  // before the threads log anything
  Progress progress(mode, *invocation.out, std::cerr, jobs.size(), invocation.verb->name);
  RunOnThreads(jobs.size(), threads, [&](std::size_t index) {
    const Job& job = jobs[index];
    const auto start = std::chrono::steady_clock::now();
    FileReport report;
    report.input = job.input;
    report.output = job.output;
    if (!force && IsUpToDate(job.input, job.output)) {
      report.result = FileResult::kSkipped;
      progress.Done(report);
      return;
    }
    try {
      const ConvertedImage converted = ConvertImage(job.input, job.output, container, options);
      for (const std::string& warning : converted.warnings) progress.Diagnostic(job.input, "warning: " + warning);
      std::string reason;
      if (!MakeParentFolders(job.output, &reason)) throw Failure(job.output, "cannot write: " + reason);
      WriteFileAtomically(job.output, converted.file.get(), converted.size);
      report.result = FileResult::kConverted;
      report.bytes_in = converted.bytes_in;
      report.bytes_out = converted.size;
    } catch (const Error& error) {
      report.result = FileResult::kFailed;
      progress.Diagnostic(error.subject().value_or(job.input), error.what());
    } catch (const std::exception& error) {
      report.result = FileResult::kFailed;
      progress.Diagnostic(job.input, error.what());
    }
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    progress.Done(report);
  });
  progress.Finish();
  return progress.Failed() == 0 ? kExitOk : kExitFailed;
}

int Run(const Invocation& invocation) {
  const bool batch = invocation.Has("recursive") || invocation.Has("file-list") || invocation.Has("output-dir") ||
                     invocation.Has("to") || invocation.operands.size() > 2;
  return batch ? RunBatch(invocation) : RunSingle(invocation);
}

}  // namespace

Verb ConvertVerb() {
  std::vector<Option> options = {
      {"recursive", nullptr, "convert the image files in folder operands and below", 'r'},
      {"file-list", "FILE", "also convert the files named in FILE, one path per line"},
      {"output-dir", "DIR", "write the outputs under DIR at the inputs' relative paths", 'o'},
      {"to", "EXT", "container of the outputs, by extension (dds, ktx, png, ...)"},
      {"force", nullptr, "convert even when the output is newer than its input"},
      {"jobs", "N", "convert N files at once (default: the number of processors)", 'j'},
      {"verbose", nullptr, "one line per file, also on a terminal"},
      {"quiet", nullptr, "print errors only"},
  };
  for (Option& option : PipelineOptionList()) options.push_back(option);
  return Verb{
      "convert",
      "convert image files to another pixel format or container",
      "IN OUT [options]\n"
      "IN... --to EXT [-o DIR] [options]\n"
      "-r FOLDER... --to EXT -o DIR [options]\n"
      "--file-list FILE --to EXT [-o DIR] [options]",
      "Reads each input (any registered container) and writes it in the container\n"
      "named by OUT's extension or by --to. With --output-dir the outputs keep the\n"
      "inputs' paths relative to the folder operands (or as given, for relative\n"
      "file paths without ..); without it each output is written beside its input.\n"
      "Folders are searched with --recursive for files with image extensions.\n"
      "\n"
      "Pipeline, always in this order: --assume-srgb; --resize; --max-size; --pow2;\n"
      "--mips (with --filter); --format; --flip-vertical; writing with the writer\n"
      "flags (--png-level, --png-interlaced, --tga-rle, --hdr-rle, --jpeg-quality;\n"
      "each only for its container). Resizing uses the box filter and keeps only\n"
      "the top level (a file's mip chain is remade). Block-compressed input is\n"
      "decoded when its pixels change or the output container cannot hold it,\n"
      "and encoded again in its own format when it was only resampled; a block\n"
      "--format (DXT1-DXT5, BC4, BC5, ASTC) encodes every level at the end, after\n"
      "the mips are made uncompressed, with --quality fast, normal (default) or\n"
      "best.\n"
      "sRGB pixels are resampled in linear light (decoded to float with the sRGB\n"
      "transfer function, filtered, encoded back) unless --mips-in-gamma-space;\n"
      "pictures (PNG, JPEG, TGA, BMP) carry no sRGB label: --assume-srgb adds it.\n"
      "\n"
      "An output is never an input, and is written to a temporary file beside it\n"
      "and renamed, so a failed run leaves it untouched. With several inputs an\n"
      "output newer than its input is skipped unless --force, and --jobs files\n"
      "convert at once. On a terminal one status line shows files done, failures,\n"
      "throughput and time left; otherwise, or with --verbose, one line per file\n"
      "(converted/skipped/failed); a summary line ends the run. IN OUT alone always\n"
      "converts and prints one line describing the written file.\n"
      "\n"
      "Exit status:\n"
      "  0  every file converted or up to date\n"
      "  1  some file failed (named on stderr); the others were converted\n"
      "  2  usage error, found before any file is converted",
      options,
      &Run,
  };
}

}  // namespace lumo::image::cli
