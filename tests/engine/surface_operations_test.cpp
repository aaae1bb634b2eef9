// The SurfaceData operations that go through the current engines: argument
// checks, destination geometry, engine replacement and ownership.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lumo/image/engines.h"
#include "lumo/image/surface_data.h"
#include "lumo/log/log.h"
#include "support/log_capture.h"

namespace lumo::image {
namespace {

using ull = unsigned long long;

// Records the destination each call receives and answers with `result`.
struct Recorder : CropEngine, ExtrudeEngine, FlipEngine, RotateEngine, RescaleEngine {
  bool result = true;
  int calls = 0;
  ull width = 0, height = 0;
  int degrees = 0;

  bool Note(const SurfaceData* destination) {
    ++calls;
    if (destination != nullptr) {
      width = destination->Width();
      height = destination->Height();
      EXPECT_EQ(destination->BytesPerRow() % 4, 0u) << "new surfaces have rows padded to four bytes";
    }
    return result;
  }
  bool Crop(const SurfaceData*, ull, ull, SurfaceData* d) override { return Note(d); }
  bool Extrude(const SurfaceData*, ull, ull, ull, ull, SurfaceData* d) override { return Note(d); }
  bool FlipVertical(const SurfaceData*, SurfaceData* d) override { return Note(d); }
  bool FlipVertical(SurfaceData*) override { return Note(nullptr); }
  bool FlipHorizontal(const SurfaceData*, SurfaceData* d) override { return Note(d); }
  bool FlipHorizontal(SurfaceData*) override { return Note(nullptr); }
  bool Rotate(const SurfaceData*, int deg, SurfaceData* d) override {
    degrees = deg;
    return Note(d);
  }
  bool Rescale(const SurfaceData*, SurfaceData* d, FilterType) override { return Note(d); }
};

// Installs the recorder in every slot for one test and puts the built-in engines back afterwards.
class SurfaceOperations : public ::testing::Test {
 protected:
  void SetUp() override { Install(&engine); }
  void TearDown() override { Install(nullptr); }
  static void Install(Recorder* e) {
    SetCropEngine(e), SetExtrudeEngine(e), SetFlipEngine(e), SetRotateEngine(e), SetRescaleEngine(e);
  }
  static std::shared_ptr<SurfaceData> Surface(ull w, ull h, PixelFormatDescriptor f = formats::A8R8G8B8) {
    // A shared view allows zero extents, which a bitmap cannot have.
    static std::shared_ptr<char> bytes(new char[1 << 16](), array_deleter());
    return SurfaceDataSharedMemory::Create(bytes, 0, f, w, h, 0);
  }
  // A result and one engine call with a w x h destination, or (w = 0) neither.
  void ExpectCall(const std::shared_ptr<SurfaceData>& out, ull w, ull h) {
    EXPECT_EQ(out != nullptr, w != 0);
    EXPECT_EQ(engine.calls, w != 0 ? 1 : 0);
    if (w != 0) {
      EXPECT_EQ(std::make_pair(engine.width, engine.height), std::make_pair(w, h));
    }
    engine.calls = 0;
  }
  Recorder engine;
};

TEST_F(SurfaceOperations, RegistryHandsOutTheSetEngineAndFallsBackToTheBuiltIn) {
  EXPECT_EQ(GetFlipEngine(), static_cast<FlipEngine*>(&engine));
  EXPECT_EQ(GetRescaleEngine(), static_cast<RescaleEngine*>(&engine));
  TearDown();  // every slot back to nullptr
  EXPECT_EQ(
      std::make_tuple(GetCropEngine(), GetExtrudeEngine(), GetFlipEngine(), GetRotateEngine(), GetRescaleEngine()),
      std::make_tuple(DefaultCropEngine(), DefaultExtrudeEngine(), DefaultFlipEngine(), DefaultRotateEngine(),
                      DefaultRescaleEngine()));
  engine.calls = 0;  // the registry must not have deleted the fixture's recorder (ASan)
}

TEST_F(SurfaceOperations, CropChecksTheRectangleBeforeCallingTheEngine) {
  const auto s = Surface(4, 3);
  struct Case {
    ull x, y, w, h;
    bool ok;
  };
  const Case cases[] = {
      {0, 0, 4, 3, true},  {3, 2, 1, 1, true},  {4, 0, 0, 1, false}, {0, 3, 1, 0, false},
      {1, 0, 4, 1, false}, {0, 1, 1, 3, false}, {2, 1, ~0ULL, 1, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.x << "," << c.y << " " << c.w << "x" << c.h);
    ExpectCall(s->CropCopy(c.x, c.y, c.w, c.h), c.ok ? c.w : 0, c.h);
  }
}

TEST_F(SurfaceOperations, DestinationGeometryOfEachOperation) {
  const auto s = Surface(4, 2);
  ExpectCall(Surface(10, 8)->ExtrudeCopy(1, 2, 3, 4), 13, 15);
  ExpectCall(s->RescaleCopy(7, 9, FilterType::Lanczos3), 7, 9);
  struct Turn {
    int degrees;
    ull w, h;  // w = 0: refused
  };
  for (const Turn& t : {Turn{450, 2, 4}, Turn{-90, 2, 4}, Turn{180, 4, 2}, Turn{-720, 4, 2}, Turn{45, 0, 0},
                        Turn{91, 0, 0}}) {
    SCOPED_TRACE(t.degrees);
    engine.degrees = 0;
    ExpectCall(s->RotateCopy(t.degrees), t.w, t.h);
    EXPECT_EQ(engine.degrees, t.w ? t.degrees : 0) << "the engine gets the caller's degrees, not reduced";
  }
  struct Pow2 {
    ull w, h, to_w, to_h;  // to_w = 0: no copy
  };
  for (const Pow2& p : {Pow2{100, 64, 128, 64}, Pow2{64, 64, 0, 0}, Pow2{0, 3, 1, 4}, Pow2{1, 1, 0, 0},
                        Pow2{65, 1, 128, 1}}) {
    SCOPED_TRACE(::testing::Message() << p.w << "x" << p.h);
    ExpectCall(Surface(p.w, p.h)->MakeSizePowerOfTwoCopy(FilterType::Box), p.to_w, p.to_h);
  }
}

TEST_F(SurfaceOperations, EngineRefusalOrUncreatableDestinationGivesNull) {
  const auto s = Surface(4, 2);
  engine.result = false;
  EXPECT_FALSE(s->CropCopy(0, 0, 1, 1) || s->ExtrudeCopy(1, 1, 1, 1) || s->RotateCopy(90) ||
               s->RescaleCopy(2, 2, FilterType::Box) || s->FlipHorizontal() || s->FlipVertical());
  EXPECT_EQ(engine.calls, 6);
  engine.result = true;
  EXPECT_TRUE(s->FlipHorizontal());
  // A zero-width destination has no row size, so it is never made and the engine is not called.
  engine.calls = 0;
  ExpectCall(s->RescaleCopy(0, 5, FilterType::Box), 0, 0);
}

TEST_F(SurfaceOperations, ExtrudeOfCompressedDataWarnsOnce) {
  testing::LogCapture log;
  const auto dxt = Surface(8, 8, PixelFormatDescriptor{0x101});
  ExpectCall(dxt->ExtrudeCopy(1, 1, 1, 1), 0, 0);
  const std::vector<std::string> warned = {"[ExtrudeCopy] Not available for compressed format."};
  EXPECT_EQ(log.Texts(), warned);
  EXPECT_EQ(log.Texts(lumo::log::Severity::Warning), warned);
}

}  // namespace
}  // namespace lumo::image
