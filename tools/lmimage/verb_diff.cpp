// lmimage diff: how far two textures of the same shape are apart, per
// channel, over every level, face, layer and slice. Pipelines use the exit
// status to guard quality.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "cli.h"
#include "file_io.h"
#include "lumo/image/mipmaps.h"
#include "pictures.h"
#include "pipeline.h"
#include "verbs.h"

namespace lumo::image::cli {
namespace {

const char* const kChannelNames[4] = {"R", "G", "B", "A"};

struct Totals {
  double max = 0, sum = 0, squares = 0;
  unsigned long long count = 0;
  void Add(double difference) {
    max = std::max(max, difference);
    sum += difference;
    squares += difference * difference;
    ++count;
  }
  // Peak 1.0: the full range of normalized values (255 for 8-bit ones).
  double Psnr() const {
    return squares == 0 ? std::numeric_limits<double>::infinity()
                        : 10.0 * std::log10(static_cast<double>(count) / squares);
  }
};

std::string Number(double value, const char* format) {
  if (std::isinf(value)) return "inf";
  char text[32];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

double ParseDecibels(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || end != text.c_str() + text.size() || !(value >= 0.0) || value > 1000.0)
    throw UsageError(text, "--min-psnr needs a number of decibels from 0 to 1000");
  return value;
}

void WriteDifferenceImage(const Element& a, const Element& b, float scale, const std::string& path) {
  const SurfaceData& pa = *a.pixels;
  const SurfaceData& pb = *b.pixels;
  const std::shared_ptr<SurfaceDataBitmap> image =
      SurfaceDataBitmap::Create(pa.Width(), pa.Height(), formats::A8B8G8R8, 2);
  if (!image) throw Failure(path, "cannot make the difference image");
  for (unsigned long long y = 0; y < pa.Height(); ++y) {
    const float* ra = reinterpret_cast<const float*>(pa.Buffer() + y * pa.BytesPerRow());
    const float* rb = reinterpret_cast<const float*>(pb.Buffer() + y * pb.BytesPerRow());
    auto* out = reinterpret_cast<std::uint8_t*>(image->Buffer() + y * image->BytesPerRow());
    for (unsigned long long i = 0; i < pa.Width() * 4; ++i) {
      const float d = std::min(1.0f, std::fabs(ra[i] - rb[i]) * scale);
      out[i] = (i % 4 == 3) ? 255 : static_cast<std::uint8_t>(std::lround(d * 255.0f));
    }
  }
  WritePng(image, path, "the difference image");
}

int Run(const Invocation& invocation) {
  if (invocation.operands.size() != 2) throw UsageError("diff needs two files, A and B");
  const std::string& path_a = invocation.operands[0];
  const std::string& path_b = invocation.operands[1];
  const bool gate = invocation.Has("min-psnr");
  const double min_psnr = gate ? ParseDecibels(invocation.Value("min-psnr")) : 0.0;
  float scale = 4.0f;
  if (invocation.Has("scale")) {
    const std::string& text = invocation.Value("scale");
    char* end = nullptr;
    scale = std::strtof(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || !(scale > 0.0f) || scale > 1e6f)
      throw UsageError(text, "--scale needs a positive number");
  }
  // Which channels count: --channels, else those either file stores.
  int only = 0;
  if (invocation.Has("channels")) {
    const std::string& text = invocation.Value("channels");
    for (const char letter : text) {
      const char* at = std::strchr("RGBArgba", letter);
      if (letter == '\0' || at == nullptr) throw UsageError(text, "--channels takes letters of RGBA, e.g. RG");
      only |= 1 << ((at - "RGBArgba") % 4);
    }
    if (only == 0) throw UsageError(text, "--channels takes letters of RGBA, e.g. RG");
  }
  std::string image_path;
  if (invocation.Has("image")) {
    image_path = invocation.Value("image");
    if (ContainerForExtension(std::filesystem::path(image_path).extension().string(), image_path) != ImageFormat::PNG)
      throw UsageError(image_path, "the difference image is a PNG file: name it .png");
    RefuseSameFile(path_a, image_path);
    RefuseSameFile(path_b, image_path);
  }

  const LoadedImage a = LoadImage(path_a);
  const LoadedImage b = LoadImage(path_b);
  const std::vector<Element> elements_a = Elements(*a.pyramid, path_a);
  const std::vector<Element> elements_b = Elements(*b.pyramid, path_b);
  if (elements_a.size() != elements_b.size()) {
    throw Failure(path_b, "different shape: " + std::to_string(elements_b.size()) + " images (levels x faces, layers, "
                              "slices) against " + std::to_string(elements_a.size()) + " in " + path_a);
  }
  for (size_t i = 0; i < elements_a.size(); ++i) {
    const SurfaceData& pa = *elements_a[i].pixels;
    const SurfaceData& pb = *elements_b[i].pixels;
    if (pa.Width() != pb.Width() || pa.Height() != pb.Height()) {
      throw Failure(path_b, "different shape: " + elements_b[i].label + " is " + std::to_string(pb.Width()) + "x" +
                                std::to_string(pb.Height()) + ", " + std::to_string(pa.Width()) + "x" +
                                std::to_string(pa.Height()) + " in " + path_a);
    }
  }

  // A missing channel reads as 0 (alpha 1).
  const Channels ca = ChannelsOf(a.pyramid->Format());
  const Channels cb = ChannelsOf(b.pyramid->Format());
  bool compared[4];
  for (int c = 0; c < 4; ++c) compared[c] = only != 0 ? (only >> c & 1) != 0 : ca.present[c] || cb.present[c];
  Totals channel[4], all;
  for (size_t i = 0; i < elements_a.size(); ++i) {
    const SurfaceData& pa = *elements_a[i].pixels;
    const SurfaceData& pb = *elements_b[i].pixels;
    for (unsigned long long y = 0; y < pa.Height(); ++y) {
      const float* ra = reinterpret_cast<const float*>(pa.Buffer() + y * pa.BytesPerRow());
      const float* rb = reinterpret_cast<const float*>(pb.Buffer() + y * pb.BytesPerRow());
      for (unsigned long long x = 0; x < pa.Width() * 4; x += 4) {
        for (int c = 0; c < 4; ++c) {
          if (!compared[c]) continue;
          const double d = std::fabs(static_cast<double>(ra[x + c]) - rb[x + c]);
          channel[c].Add(d);
          all.Add(d);
        }
      }
    }
  }

  std::ostream& out = *invocation.out;
  out << "compared " << elements_a.size() << " image" << (elements_a.size() == 1 ? "" : "s") << " of "
      << FormatName(a.pyramid->Format()) << " and " << FormatName(b.pyramid->Format()) << '\n';
  out << "channel  max       mean      PSNR (dB)\n";
  const auto line = [&](const char* name, const Totals& t) {
    std::string text = name;
    text.resize(9, ' ');
    std::string max = Number(t.max, "%.6f"), mean = Number(t.count ? t.sum / double(t.count) : 0.0, "%.6f");
    max.resize(10, ' ');
    mean.resize(10, ' ');
    out << text << max << mean << Number(t.Psnr(), "%.2f") << '\n';
  };
  for (int c = 0; c < 4; ++c)
    if (compared[c]) line(kChannelNames[c], channel[c]);
  line("all", all);

  if (!image_path.empty()) WriteDifferenceImage(elements_a.front(), elements_b.front(), scale, image_path);
  if (gate && all.Psnr() < min_psnr) {
    throw Failure(path_b, "PSNR " + Number(all.Psnr(), "%.2f") + " dB is below --min-psnr " +
                              Number(min_psnr, "%g") + " dB");
  }
  return kExitOk;
}

}  // namespace

Verb DiffVerb() {
  return Verb{
      "diff",
      "measure how far two textures of the same shape are apart",
      "A B [--channels RGBA] [--min-psnr DB] [--image DIFF.png [--scale N]]",
      "Reads A and B (any containers, block formats decoded) and compares every\n"
      "level, face, layer and slice, which must agree in number and size. Values\n"
      "are compared as normalized numbers (0 to 1; -1 to 1 signed; floats as they\n"
      "are). Prints per channel (--channels, else those either file stores) the\n"
      "largest and mean absolute difference and the PSNR with a peak of 1.0\n"
      "(8-bit values: 255), then the same over all compared channels. --image\n"
      "writes |A - B| of the first image, times --scale (default 4), as a PNG.\n"
      "\n"
      "Exit status:\n"
      "  0  compared (and the PSNR is at least --min-psnr when given)\n"
      "  1  a file cannot be read, the shapes differ, or the PSNR is below --min-psnr\n"
      "  2  usage error",
      {{"channels", "LETTERS", "compare only these of R, G, B, A (e.g. RG for normal maps)"},
       {"min-psnr", "DB", "fail (exit status 1) when the PSNR over all channels is below DB"},
       {"image", "FILE.png", "write the difference of the first image as a PNG"},
       {"scale", "N", "multiply the differences in --image by N (default 4)"}},
      &Run,
  };
}

}  // namespace lumo::image::cli
