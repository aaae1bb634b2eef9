// The convert pipeline: what happens to one image between reading and writing,
// shared by the single-file and batch forms of lmimage convert.
//
// Steps, always in this order:
//   1. --assume-srgb     relabel the pixels with their sRGB format (bytes unchanged)
//   2. --resize WxH      top level to exactly W x H
//   3. --max-size N      top level shrunk so that its longest side is at most N
//   4. --pow2            top level to power-of-two sides
//   5. --mips            complete the mip chain with --filter
//   6. --format NAME     convert every level; block formats are encoded
//                        (--quality) from the finished uncompressed levels
//   7. --flip-vertical   turn every level upside down
//   8. write with the writer's flags (--png-level, --png-interlaced, --tga-rle,
//      --hdr-rle, --jpeg-quality)
// Block-compressed input is decoded first whenever its pixels must change or
// the output container cannot hold its blocks; steps 2 to 5 always work on
// uncompressed pixels. sRGB pixels are resampled in linear light unless
// --mips-in-gamma-space.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli.h"
#include "format_args.h"
#include "lumo/image/blocks.h"
#include "lumo/image/engines.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/pyramid.h"

namespace lumo::image::cli {

struct PipelineOptions {
  bool assume_srgb = false;
  unsigned long long resize_width = 0;  // 0: no --resize
  unsigned long long resize_height = 0;
  unsigned long long max_size = 0;  // 0: no --max-size
  bool pow2 = false;
  bool mips = false;
  FilterType filter = FilterType::Box;
  bool linear_light = true;
  std::optional<Resolved> format;
  blocks::Quality quality = blocks::Quality::Normal;
  bool flip_vertical = false;
  int save_flags = 0;
};

// The pipeline's options in the order above, for a verb's option table.
std::vector<Option> PipelineOptionList();

// Checks every pipeline option; throws usage Errors only. The writer flags
// must suit `container`.
PipelineOptions ParsePipelineOptions(const Invocation& invocation, ImageFormat container);

// The container an extension (".dds", "png") names; usage Errors name `subject`.
ImageFormat ContainerForExtension(const std::string& extension, const std::string& subject);
// Extensions of image files, for picking files out of a folder.
bool IsImageExtension(const std::string& extension);

struct ConvertedImage {
  std::shared_ptr<Pyramid> pyramid;  // as written
  std::shared_ptr<char> file;
  size_t size = 0;
  size_t bytes_in = 0;
  std::vector<std::string> warnings;  // the reader's
};

// Reads `input`, runs the steps and encodes the result for `output` (not
// written). Throws a Failure naming the input, or the output when the
// container cannot hold the result.
ConvertedImage ConvertImage(const std::string& input, const std::string& output, ImageFormat container,
                            const PipelineOptions& options);

std::string FormatName(const PixelFormatDescriptor& format);

}  // namespace lumo::image::cli
