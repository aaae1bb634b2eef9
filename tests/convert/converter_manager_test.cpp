// Converter lookup: direct hits, breadth-first chains and their trace lines,
// registration, and running sequences.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "lumo/image/converters.h"
#include "lumo/image/formats.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"
#include "support/descriptors.h"
#include "support/log_capture.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;

using testing::D;
using testing::LogCapture;

using namespace formats;

// Made-up formats (kinds no built-in conversion uses); each test owns its own,
// since registrations change the process-wide manager.
const PixelFormatDescriptor kY4 = D(0x10D00), kY8 = D(0x20D00), kY16 = D(0x40D00), kM8 = D(0x20C00),
                            kM16 = D(0x40C00), kK8 = D(0x20E00), kK16 = D(0x40E00), kK24 = D(0x60E00),
                            kC8 = D(0x20B00), kC16 = D(0x40B00), kC24 = D(0x60B00);

// Makes a surface of the target format and records what it was asked.
struct Recorder : Converter {
  int calls = 0;
  PixelFormatDescriptor last_target{}, last_source{};
  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override {
    ++calls;
    last_target = target;
    last_source = source->Format();
    auto out = SurfaceDataBitmap::Create(source->Width(), source->Height(), target, 2);
    if (out) std::memset(out->Buffer(), 0, out->Size());
    return out;
  }
};

struct Failing : Converter {
  int calls = 0;
  std::shared_ptr<SurfaceData> Convert(const SurfaceData*, const PixelFormatDescriptor&) override {
    ++calls;
    return SurfaceData::Null;
  }
};

ConverterManager& Manager() { return *ConverterManager::Instance(); }

TEST(ConverterManager, ChainsTakeTheFewestStepsInBreadthFirstOrderAndLogEachStep) {
  struct Chain {
    PixelFormatDescriptor from, to;
    std::vector<std::string> steps;
  };
  const Chain chains[] = {
      {R5G6B5, L8, {"R5G6B5 To R8G8B8", "R8G8B8 To L8"}},
      {A8R8G8B8, s_A8B8G8R8, {"A8R8G8B8 To A8B8G8R8", "A8B8G8R8 To s_A8B8G8R8"}},
      // B8G8R8 has the lower value, so it wins over R8G8B8
      {L8, R8, {"L8 To B8G8R8", "B8G8R8 To R8"}},
      {A1, L8, {"A1 To A8", "A8 To B8G8R8", "B8G8R8 To L8"}},
      {A4, s_R8G8B8A8, {"A4 To A8", "A8 To A8B8G8R8", "A8B8G8R8 To R8G8B8A8", "R8G8B8A8 To s_R8G8B8A8"}},
      {R16f, A8R8G8B8, {"R16f To R16", "R16 To R8", "R8 To A8R8G8B8"}},
  };
  const std::uint32_t saved_channel = LogChannel;
  LogChannel = 7;
  for (const Chain& c : chains) {
    SCOPED_TRACE(c.steps.front());
    LogCapture log;
    const auto conv = Manager().GetConverter(c.from, c.to);
    const auto* seq = dynamic_cast<ConverterSequence*>(conv.get());
    ASSERT_NE(seq, nullptr);
    ASSERT_EQ(log.lines.size(), c.steps.size());
    ASSERT_EQ(seq->Steps().size(), c.steps.size());
    PixelFormatDescriptor at = c.from;
    for (size_t i = 0; i < c.steps.size(); ++i) {
      const auto& line = log.lines[i];
      EXPECT_EQ(std::make_tuple(line.text, line.channel, line.severity, line.level),
                std::make_tuple("Convert From " + c.steps[i], 7u, log::Severity::Message, -10));
      // Steps share the registered converters, which either overload hands out.
      const auto& step = seq->Steps()[i];
      EXPECT_EQ(step.converter.get(), Manager().GetConverter(at, step.produces).get());
      EXPECT_EQ(step.converter.get(), Manager().GetConverter({at, step.produces}).get());
      at = step.produces;
    }
    EXPECT_EQ(at, c.to);
    // Nothing is cached: a second lookup searches and logs again.
    log.lines.clear();
    EXPECT_NE(Manager().GetConverter(c.from, c.to).get(), conv.get());
    EXPECT_EQ(log.lines.size(), c.steps.size());
  }
  LogChannel = saved_channel;
}

TEST(ConverterManager, NoConverterAndNoPathGiveNullSilently) {
  LogCapture log;
  const std::pair<PixelFormatDescriptor, PixelFormatDescriptor> none[] = {
      {R8G8B8, R8G8B8},             // a cycle leads back, but (X, X) needs its own converter
      {A8R8G8B8, A8R8G8B8},         //
      {kY8, A8R8G8B8},              // source is no vertex
      {A8R8G8B8, DXT1},             // compressed data is never a target
      {DXT1, A8R8G8B8},             // nor decoded
      {SetSRGB(R8G8B8, true), R8},  // flags make another vertex
      {R8G8B8, SetSRGB(R8G8B8, true)},
      {D(0), R8},
  };
  for (const auto& p : none) {
    EXPECT_EQ(Manager().GetConverter(p), Converter::Null) << ToString(p.first) << " to " << ToString(p.second);
    const auto src = SurfaceDataBitmap::Create(2, 2, p.first, 2);
    EXPECT_TRUE(!src || !src->ConvertCopy(p.second));
  }
  EXPECT_TRUE(log.lines.empty());
}

TEST(ConverterManager, RegisterConverterAddsRefusesOrReplaces) {
  auto first = std::make_shared<Recorder>();
  auto second = std::make_shared<Recorder>();
  // replace=true also makes the test repeatable in one process
  EXPECT_TRUE(Manager().RegisterConverter({kM8, kM16}, first, true));
  EXPECT_EQ(Manager().GetConverter(kM8, kM16).get(), first.get());
  EXPECT_FALSE(Manager().RegisterConverter({kM8, kM16}, second, false));
  EXPECT_EQ(Manager().GetConverter(kM8, kM16).get(), first.get());
  EXPECT_TRUE(Manager().RegisterConverter({kM8, kM16}, second, true));
  EXPECT_EQ(Manager().GetConverter(kM8, kM16).get(), second.get());

  const auto out = SurfaceDataBitmap::Create(3, 1, kM8, 0)->ConvertCopy(kM16);
  ASSERT_TRUE(out);
  EXPECT_EQ(std::make_tuple(out->Format(), second->calls, second->last_target, first->calls),
            std::make_tuple(kM16, 1, kM16, 0));

  // Built-in pairs refuse without replace.
  EXPECT_FALSE(Manager().RegisterConverter({R8G8B8, A8B8G8R8}, second, false));
  EXPECT_NE(Manager().GetConverter(R8G8B8, A8B8G8R8).get(), second.get());
}

TEST(ConverterManager, RegisteredEdgesAreSearchedAfterBuiltInEdges) {
  // From A2, the built-in edge to A8 comes before the added edge to Y4, even
  // though Y4 has the lower value; both lead on to Y16 in one more step.
  Manager().RegisterConverter({kY4, kY16}, std::make_shared<Recorder>(), true);
  Manager().RegisterConverter({A8, kY16}, std::make_shared<Recorder>(), true);
  Manager().RegisterConverter({A2, kY4}, std::make_shared<Recorder>(), true);
  LogCapture log;
  const auto conv = Manager().GetConverter(A2, kY16);
  ASSERT_TRUE(conv);
  EXPECT_EQ(log.Texts(), (std::vector<std::string>{"Convert From A2 To A8", "Convert From A8 To Y16"}));
}

TEST(ConverterManager, ConvertCopyWithAConverterPointer) {
  auto src = SurfaceDataBitmap::Create(3, 1, R5G6B5, 0);
  ASSERT_TRUE(src);
  const std::uint16_t px[3] = {0xFFFF, 0x0000, 0x07E0};
  std::memcpy(src->Buffer(), px, sizeof px);

  EXPECT_EQ(src->ConvertCopy(static_cast<Converter*>(nullptr)), SurfaceData::Null);
  // A single-step converter gets the all-zero target and cannot make a result.
  const auto direct = Manager().GetConverter(R5G6B5, R8G8B8);
  ASSERT_TRUE(direct);
  EXPECT_EQ(src->ConvertCopy(direct.get()), SurfaceData::Null);

  // A sequence ignores the target; converting through it logs nothing more.
  const auto chain = Manager().GetConverter(R5G6B5, L8);
  ASSERT_TRUE(chain);
  LogCapture log;
  for (const auto& out : {src->ConvertCopy(chain.get()), src->ConvertCopy(L8)}) {
    ASSERT_TRUE(out);
    EXPECT_EQ(std::make_tuple(out->Format(), out->Width(), out->BytesPerRow()), std::make_tuple(L8, 3ull, 4ull));
    const auto* p = reinterpret_cast<const std::uint8_t*>(out->Buffer());
    EXPECT_EQ(std::vector<int>(p, p + 3), (std::vector<int>{255, 0, 149}));  // (587 * 255) / 1000
  }
  EXPECT_EQ(log.lines.size(), 2u);  // only ConvertCopy(L8) searched again
}

TEST(ConverterManager, SequencePassesEachStepItsFormatAndStopsAtAFailure) {
  auto c1 = std::make_shared<Recorder>(), c2 = std::make_shared<Recorder>();
  Manager().RegisterConverter({kC8, kC16}, c1, true);
  Manager().RegisterConverter({kC16, kC24}, c2, true);
  const auto src = SurfaceDataBitmap::Create(5, 2, kC8, 0);
  const auto seq = Manager().GetConverter(kC8, kC24);
  ASSERT_TRUE(seq);
  const auto out = seq->Convert(src.get(), A8R8G8B8);  // the target is ignored
  ASSERT_TRUE(out);
  EXPECT_EQ(std::make_tuple(out->Format(), out->Width(), out->Height()), std::make_tuple(kC24, 5ull, 2ull));
  EXPECT_EQ(std::make_tuple(c1->last_source, c1->last_target, c2->last_source, c2->last_target),
            std::make_tuple(kC8, kC16, kC16, kC24));

  auto fail = std::make_shared<Failing>();
  auto after = std::make_shared<Recorder>();
  Manager().RegisterConverter({kK8, kK16}, fail, true);
  Manager().RegisterConverter({kK16, kK24}, after, true);
  EXPECT_EQ(SurfaceDataBitmap::Create(2, 2, kK8, 0)->ConvertCopy(kK24), SurfaceData::Null);
  EXPECT_EQ(std::make_pair(fail->calls, after->calls), std::make_pair(1, 0));
}

}  // namespace
}  // namespace lumo::image
