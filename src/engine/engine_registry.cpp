#include "engine/builtin_engines.h"
#include "engine/rescale_engine.h"
#include "lumo/image/engines.h"

namespace lumo::image {
namespace {

// Process-wide slots; null means "the built-in engine". Never owned.
CropEngine* g_crop = nullptr;
ExtrudeEngine* g_extrude = nullptr;
FlipEngine* g_flip = nullptr;
RescaleEngine* g_rescale = nullptr;
RotateEngine* g_rotate = nullptr;

}  // namespace

CropEngine::~CropEngine() = default;
ExtrudeEngine::~ExtrudeEngine() = default;
FlipEngine::~FlipEngine() = default;
RotateEngine::~RotateEngine() = default;
RescaleEngine::~RescaleEngine() = default;

CropEngine* DefaultCropEngine() {
  static BuiltInCropEngine engine;
  return &engine;
}

ExtrudeEngine* DefaultExtrudeEngine() {
  static BuiltInExtrudeEngine engine;
  return &engine;
}

FlipEngine* DefaultFlipEngine() {
  static BuiltInFlipEngine engine;
  return &engine;
}

RescaleEngine* DefaultRescaleEngine() {
  static BuiltInRescaleEngine engine;
  return &engine;
}

RotateEngine* DefaultRotateEngine() {
  static BuiltInRotateEngine engine;
  return &engine;
}

CropEngine* GetCropEngine() { return g_crop != nullptr ? g_crop : DefaultCropEngine(); }
ExtrudeEngine* GetExtrudeEngine() { return g_extrude != nullptr ? g_extrude : DefaultExtrudeEngine(); }
FlipEngine* GetFlipEngine() { return g_flip != nullptr ? g_flip : DefaultFlipEngine(); }
RescaleEngine* GetRescaleEngine() { return g_rescale != nullptr ? g_rescale : DefaultRescaleEngine(); }
RotateEngine* GetRotateEngine() { return g_rotate != nullptr ? g_rotate : DefaultRotateEngine(); }

void SetCropEngine(CropEngine* engine) { g_crop = engine; }
void SetExtrudeEngine(ExtrudeEngine* engine) { g_extrude = engine; }
void SetFlipEngine(FlipEngine* engine) { g_flip = engine; }
void SetRescaleEngine(RescaleEngine* engine) { g_rescale = engine; }
void SetRotateEngine(RotateEngine* engine) { g_rotate = engine; }

}  // namespace lumo::image
