// Hostile input for every container: each truncation of valid files and a few
// thousand byte mutations go through ExerciseImage, which reads every byte of
// every view and writes the image back, so the sanitizers catch any reach past
// the buffer. A new plugin joins by adding one row to kContainers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "lumo/image/image_factory.h"
#include "lumo/image/pyramid.h"
#include "support/bytes.h"
#include "support/descriptors.h"
#include "support/exercise_image.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/surfaces.h"

namespace lumo::image {
namespace {

using testing::Bytes;
using testing::Chain;
using testing::Encode;
using testing::Named;

// What the reader makes of a file cut short.
enum class Truncated {
  Refused,      // every shorter copy is refused
  FewerLevels,  // the levels that fit load (some shorter copy does), the rest are dropped
};

struct Container {
  const char* name;
  ImageFormat format;
  std::vector<Bytes> (*seeds)();
  size_t header_bytes;  // most mutations land here, where the sizes and flags live
  bool big_endian;      // byte order of its fields, for the "interesting values"
  Truncated (*truncated)(const Pyramid& whole);
};

std::vector<Bytes> DDSSeeds() {
  const ImageFormat dds = ImageFormat::DDS;
  return {Encode(*Chain(MipmapType::Surface, 8, 8, 1, formats::A8R8G8B8, 4), dds),
          Encode(*Chain(MipmapType::Cube, 4, 4, 1, Named("DXT1"), 3), dds),
          Encode(*Chain(MipmapType::SurfaceArray, 6, 6, 3, formats::R5G6B5, 3), dds),
          Encode(*Chain(MipmapType::Volume, 4, 4, 4, formats::A8R8G8B8, 3), dds),
          Encode(*Chain(MipmapType::Surface, 8, 4, 1, Named("BC7"), 3), dds)};
}

// Only plain surfaces and volumes lose levels; a partial cube or array is refused.
Truncated DDSTruncated(const Pyramid& whole) {
  const bool levels_drop = whole.Type() == MipmapType::Surface || whole.Type() == MipmapType::Volume;
  return levels_drop ? Truncated::FewerLevels : Truncated::Refused;
}

const Container kContainers[] = {
    {"DDS", ImageFormat::DDS, DDSSeeds, 148, false, DDSTruncated},
};

class HostileInput : public ::testing::TestWithParam<Container> {
 protected:
  void SetUp() override {
    if (!ImageFactory::Instance()->IsRegistered(GetParam().format)) {
      GTEST_SKIP() << "no plugin registered for " << GetParam().name;
    }
    seeds_ = GetParam().seeds();
    ASSERT_FALSE(seeds_.empty());
    for (const Bytes& seed : seeds_) ASSERT_FALSE(seed.empty()) << "a seed failed to encode";
  }
  std::vector<Bytes> seeds_;
};

TEST_P(HostileInput, EveryTruncationLoadsWhatFitsOrNothing) {
  const Container& c = GetParam();
  testing::LogCapture quiet;
  for (size_t i = 0; i < seeds_.size(); ++i) {
    SCOPED_TRACE("seed " + std::to_string(i));
    const Bytes& seed = seeds_[i];
    const auto whole = testing::Decode(seed);
    ASSERT_TRUE(whole);
    ASSERT_EQ(whole->Format(), c.format);
    const auto full = whole->GetPyramid(false);
    const Truncated expected = c.truncated(*full);
    int loaded = 0;
    for (size_t length = 0; length < seed.size(); ++length) {
      const auto image = testing::DecodeAndExercise(testing::Shared(seed.data(), length), length);
      if (!image) continue;
      ++loaded;
      EXPECT_LT(image->GetPyramid(false)->LevelsCurrent(), full->LevelsCurrent()) << length << " bytes";
    }
    EXPECT_EQ(loaded > 0, expected == Truncated::FewerLevels) << loaded << " shorter copies loaded";
  }
}

TEST_P(HostileInput, MutatedFilesNeverCrash) {
  const Container& c = GetParam();
  testing::LogCapture quiet;
  std::mt19937 rng(20240611);
  const std::uint32_t interesting[] = {0, 1, 2, 0x7F, 0x80, 0xFF, 0xFFFF, 0x10000, 0x7FFFFFFF, 0xFFFFFFFF};
  int loaded = 0;
  for (int round = 0; round < 4000; ++round) {
    Bytes b = seeds_[round % seeds_.size()];
    for (int edits = 1 + static_cast<int>(rng() % 4); edits > 0; --edits) {
      const size_t at = rng() % (rng() % 4 != 0 ? std::min(b.size(), c.header_bytes) : b.size());
      if (rng() % 2 != 0 && at + 4 <= b.size()) {
        const std::uint32_t value = interesting[rng() % std::size(interesting)];
        testing::PutField(&b, at & ~size_t{3}, 4, c.big_endian, value);
      } else {
        b[at] = static_cast<char>(b[at] ^ (1 << (rng() % 8)));
      }
    }
    if (testing::DecodeAndExercise(testing::Shared(b), b.size())) ++loaded;
  }
  EXPECT_GT(loaded, 0) << "no mutation loaded: the decoder was never reached past its checks";
}

INSTANTIATE_TEST_SUITE_P(Containers, HostileInput, ::testing::ValuesIn(kContainers),
                         [](const ::testing::TestParamInfo<Container>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace lumo::image
