// Writes fuzzer seeds made by the library's own writers: small pictures of
// every mip-map kind in a range of pixel formats, serialized by every
// registered plugin that accepts them. A new plugin gets seeds without any
// change here; list its save-flag variants in kSaveFlags if it has some.
//
//   lmimage_make_seeds DIR    (prints the number of files written)
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "lumo/image/formats.h"
#include "lumo/image/image_factory.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"
#include "support/bmp_files.h"
#include "support/gif_files.h"
#include "support/hdr_files.h"
#include "support/png_files.h"
#include "support/tga_files.h"

namespace {

using namespace lumo::image;
using ull = unsigned long long;

// Writers that change their output with save flags get one more seed per flag.
struct SaveFlag {
  ImageFormat format;
  int flags;
  const char* suffix;
};
const SaveFlag kSaveFlags[] = {
    {ImageFormat::JPG, ISF_JPEG_QUALITYSUPERB, "superb"},
    {ImageFormat::JPG, ISF_JPEG_QUALITYBAD, "bad"},
    {ImageFormat::TGA, ISF_TARGA_SAVE_RLE, "rle"},
    {ImageFormat::PNG, ISF_PNG_INTERLACED, "interlaced"},
    {ImageFormat::HDR, ISF_HDR_RLE, "rle"},
};

// Masks, FourCC codes, DX10-only and sRGB formats, and block-compressed ones of
// every family; a writer skips what its container cannot hold.
const char* const kPixelFormats[] = {
    "A8R8G8B8",
    "X8R8G8B8",
    "A8B8G8R8",
    "R8G8B8A8",
    "s_A8R8G8B8",
    "R8G8B8",
    "R5G6B5",
    "A1R5G5B5",
    "A4R4G4B4",
    "A8",
    "L8",
    "A8L8",
    "L16",
    "R8",
    "G16R16",
    "R16G16B16A16",
    "A16fB16fG16fR16f",
    "R16f",
    "R32f",
    "G16fR16f",
    "A32fB32fG32fR32f",
    "R8sG8s",
    "DXT1",
    "DXT3",
    "DXT5",
    "s_DXT1",
    "BC4_unsigned",
    "BC5_signed",
    "BC6H_unsigned",
    "BC7",
    "s_BC7",
    "ETC1",
    "ETC2_RGBA8",
    "EAC_R11",
    "ASTC_RGBA_4x4",
    "ASTC_RGBA_8x8",
    "PVRTC_4bpp_RGBA",
    "ATC_RGB",
};

struct Shape {
  const char* name;
  MipmapType kind;
  ull width, height, count, levels;  // count: layers of an array, depth of a volume
};
const Shape kShapes[] = {
    {"surface", MipmapType::Surface, 5, 3, 1, 1}, {"mips", MipmapType::Surface, 8, 8, 1, 4},
    {"cube", MipmapType::Cube, 4, 4, 1, 3},       {"array", MipmapType::SurfaceArray, 4, 4, 3, 2},
    {"volume", MipmapType::Volume, 4, 4, 4, 3},
};

std::shared_ptr<Surface> Filled(ull w, ull h, PixelFormatDescriptor f, std::mt19937* rng) {
  const auto data = SurfaceDataBitmap::Create(w, h, f, 2);
  if (!data || data->Buffer() == nullptr) return nullptr;
  for (ull i = 0; i < data->Size(); ++i) data->Buffer()[i] = static_cast<char>((*rng)());
  return std::make_shared<Surface>(data);
}

std::shared_ptr<Pyramid> Build(const Shape& s, PixelFormatDescriptor f) {
  std::mt19937 rng(7);
  std::vector<std::shared_ptr<Mipmap>> levels;
  for (ull i = 0; i < s.levels; ++i) {
    const ull w = std::max(1ull, s.width >> i), h = std::max(1ull, s.height >> i);
    const ull n = s.kind == MipmapType::Cube     ? 6
                  : s.kind == MipmapType::Volume ? std::max(1ull, s.count >> i)
                                                 : s.count;
    std::vector<std::shared_ptr<Surface>> faces;
    for (ull j = 0; j < n; ++j) {
      faces.push_back(Filled(w, h, f, &rng));
      if (!faces.back()) return nullptr;
    }
    if (s.kind == MipmapType::Surface) levels.push_back(faces[0]);
    if (s.kind == MipmapType::Cube)
      levels.push_back(Cube::Create(faces[0], faces[1], faces[2], faces[3], faces[4], faces[5]));
    if (s.kind == MipmapType::SurfaceArray) levels.push_back(std::make_shared<SurfaceArray>(faces));
    if (s.kind == MipmapType::Volume) levels.push_back(std::make_shared<Volume>(faces));
    if (!levels.back()) return nullptr;
  }
  return Pyramid::Make(levels, ImageOrigin::TopDown);
}

// KTX key/value data, which the writer never stores (orientation, an A8 alpha
// plane with its pitch, an ETC1 one, a key nobody reads), spliced into a
// written file; and an ASTC volume of 3-D blocks, which no seed shape makes.
std::vector<std::pair<std::string, std::string>> KTXAndASTCSeeds() {
  std::vector<std::pair<std::string, std::string>> seeds;
  auto entry = [](const std::string& key, const std::string& value) {
    std::string e(4, '\0');
    const size_t count = key.size() + 1 + value.size();
    for (size_t i = 0; i < 4; ++i) e[i] = static_cast<char>(count >> (8 * i));
    e += key + '\0' + value;
    e.resize((e.size() + 3) & ~size_t{3}, '\0');
    return e;
  };
  PixelFormatDescriptor rgba{};
  size_t size = 0;
  const auto pyramid = FromString("A8B8G8R8", &rgba) ? Build(kShapes[1], rgba) : nullptr;  // 8 x 8, four levels
  const auto file = pyramid ? ImageFactory::Instance()->Serialize(ImageFormat::KTX, pyramid.get(), &size, 0) : nullptr;
  if (file && size > 64) {
    const std::string kv = entry("KTXOrientation", std::string("S=r,T=u\0", 8)) +
                           entry("AlPitch", std::string("\x08\0\0\0", 4)) + entry("AlChann", std::string(64, 'a')) +
                           entry("AlChanl", std::string(32, 'e')) + entry("Other", "x");
    std::string b(file.get(), size);
    b.insert(64, kv);
    for (size_t i = 0; i < 4; ++i) b[60 + i] = static_cast<char>(kv.size() >> (8 * i));
    seeds.emplace_back("ktx-keyvalues-alpha-orientation.ktx", b);
  }
  if (ImageFactory::Instance()->IsRegistered(ImageFormat::ASTC)) {
    std::string b("\x13\xAB\xA1\x5C\x03\x03\x03\x06\0\0\x06\0\0\x06\0\0", 16);
    for (int i = 0; i < 8 * 16; ++i) b += static_cast<char>(i * 13);
    seeds.emplace_back("astc-volume-3x3x3.astc", b);
  }
  return seeds;
}

// PNG layouts the writer never makes: palettes, grey below 8 bits with tRNS,
// gAMA, and iTXt chunks (which the reader hides) after IHDR, two in a row.
std::vector<std::pair<std::string, std::string>> PNGSeeds() {
  namespace t = lumo::image::testing;
  const t::Bytes itxt = t::PngChunk("iTXt", std::string("Comment\0\0\0\0text", 16));
  const t::Bytes palette = t::PngFile(5, 2, 2, 3, {"\x1b\x40", std::string("\xe4\x00", 2)},
                                      {t::PngChunk("PLTE", std::string(12, '\x33')), t::PngChunk("tRNS", "\x80")});
  const t::Bytes grey = t::PngFile(3, 3, 4, 0, {"\x12\x30", "\xff\xf0", "\x01\x20"},
                                   {t::PngChunk("gAMA", t::BE(100000, 4)), t::PngChunk("tRNS", t::BE(1, 2))});
  const t::Bytes rgb16 = t::PngFile(2, 2, 16, 2, {std::string(12, '\x7f'), std::string(12, '\x01')},
                                    {t::PngChunk("tRNS", std::string(6, '\x01'))});
  std::vector<std::pair<std::string, std::string>> seeds;
  for (const auto& [name, b] : {std::pair<const char*, t::Bytes>{"png-palette2-trns.png", palette},
                                {"png-grey4-trns-gama.png", grey},
                                {"png-rgb16-trns.png", rgb16},
                                {"png-itxt-twice.png", t::WithChunk(t::WithChunk(grey, 1, itxt), 1, itxt)}}) {
    seeds.emplace_back(name, std::string(b.begin(), b.end()));
  }
  return seeds;
}

// Layouts no writer produces, made by hand: those above, the hand-made
// pictures of the hostile-input suite, PVR orientation metadata (spliced into
// a written file) and the older PVR header, which is read but never written.
std::vector<std::pair<std::string, std::string>> HandMadeSeeds() {
  std::vector<std::pair<std::string, std::string>> seeds = KTXAndASTCSeeds();
  if (ImageFactory::Instance()->IsRegistered(ImageFormat::PNG)) {
    for (auto& seed : PNGSeeds()) seeds.push_back(std::move(seed));
  }
  // The pictures the hostile-input suite makes by hand for the library's own decoders.
  namespace t = lumo::image::testing;
  const std::pair<const char*, std::vector<t::Bytes> (*)()> pictures[] = {
      {"tga", t::TGAHostileSeeds}, {"bmp", t::BMPHostileSeeds}, {"gif", t::GIFHostileSeeds}, {"hdr", t::HDRHostileSeeds}};
  for (const auto& [extension, make] : pictures) {
    const std::vector<t::Bytes> files = make();
    for (size_t i = 0; i < files.size(); ++i) {
      const std::string name = std::string(extension) + "-hand-made-" + std::to_string(i) + "." + extension;
      seeds.emplace_back(name, std::string(files[i].begin(), files[i].end()));
    }
  }
  if (!ImageFactory::Instance()->IsRegistered(ImageFormat::PVR)) return seeds;
  auto put32 = [](std::string* b, size_t at, unsigned v) {
    for (size_t i = 0; i < 4; ++i) (*b)[at + i] = static_cast<char>(v >> (8 * i));
  };
  PixelFormatDescriptor rgba{};
  size_t size = 0;
  const auto pyramid = FromString("A8B8G8R8", &rgba) ? Build(kShapes[1], rgba) : nullptr;
  const auto file = pyramid ? ImageFactory::Instance()->Serialize(ImageFormat::PVR, pyramid.get(), &size, 0) : nullptr;
  if (file && size > 52) {
    std::string b(file.get(), size);
    b.insert(52, std::string("PVR\x03\x03\0\0\0\x03\0\0\0\0\x01\0", 15));  // orientation: y axis up
    put32(&b, 48, 15);
    seeds.emplace_back("pvr-metadata-orientation.pvr", b);
  }
  // Version 2: 8 x 8 "rgba" 8888 with four levels stored bottom up, and a DXT1 cube.
  const struct {
    const char* name;
    unsigned flags, mips;
    size_t data;
  } v2[] = {{"pvr-v2-mips-rgba.pvr", 18 | 0x10000, 4, 256 + 64 + 16 + 4},
            {"pvr-v2-cube-dxt1.pvr", 32 | 0x1000, 1, 6 * 32}};
  for (const auto& s : v2) {
    std::string b(52 + s.data, '\x5a');
    const std::pair<size_t, unsigned> fields[] = {{0, 52},       {4, 8},           {8, 8}, {12, s.mips},
                                                  {16, s.flags}, {44, 0x21525650}, {48, 1}};
    for (const auto& [at, value] : fields) put32(&b, at, value);
    seeds.emplace_back(s.name, b);
  }
  return seeds;
}

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
    return 2;
  }
  const std::filesystem::path dir = argv[1];
  std::error_code error;
  std::filesystem::create_directories(dir, error);
  if (error) {
    std::fprintf(stderr, "cannot create %s: %s\n", dir.c_str(), error.message().c_str());
    return 1;
  }
  // Writers refuse formats their container cannot hold, one log line each.
  lumo::log::SetSink([](unsigned, lumo::log::Severity, int, const std::string&) {});

  std::vector<PixelFormatDescriptor> pixel_formats;
  for (const char* name : kPixelFormats) {
    PixelFormatDescriptor f{};
    if (!FromString(name, &f)) {
      std::fprintf(stderr, "unknown pixel format %s\n", name);
      return 1;
    }
    pixel_formats.push_back(f);
  }

  ImageFactory* factory = ImageFactory::Instance();
  std::set<std::string> seen;  // identical outputs are written once
  int written = 0;
  for (int number = 1; number < 64; ++number) {
    const auto format = static_cast<ImageFormat>(number);
    if (!factory->IsRegistered(format)) continue;
    const std::string container = Lower(ImageFactory::FormatToString(format));
    std::vector<std::pair<int, std::string>> variants = {{0, ""}};
    for (const SaveFlag& f : kSaveFlags) {
      if (f.format == format) variants.emplace_back(f.flags, std::string("-") + f.suffix);
    }
    for (const Shape& shape : kShapes) {
      for (const PixelFormatDescriptor pixel : pixel_formats) {
        const auto pyramid = Build(shape, pixel);
        if (!pyramid) continue;
        for (const auto& [flags, suffix] : variants) {
          size_t size = 0;
          const std::shared_ptr<char> file = factory->Serialize(format, pyramid.get(), &size, flags);
          if (!file || size == 0 || !seen.insert(std::string(file.get(), size)).second) continue;
          const std::string name = container + "-" + shape.name + "-" + ToString(pixel) + suffix + "." + container;
          std::ofstream out(dir / name, std::ios::binary);
          out.write(file.get(), static_cast<std::streamsize>(size));
          if (!out) {
            std::fprintf(stderr, "cannot write %s\n", (dir / name).c_str());
            return 1;
          }
          ++written;
        }
      }
    }
  }
  for (const auto& [name, bytes] : HandMadeSeeds()) {
    std::ofstream out(dir / name, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) {
      std::fprintf(stderr, "cannot write %s\n", (dir / name).c_str());
      return 1;
    }
    ++written;
  }
  std::printf("%d\n", written);
  return written == 0 ? 1 : 0;
}
