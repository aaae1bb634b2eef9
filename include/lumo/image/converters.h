// Pixel conversion: converters registered per (source, target) format pair,
// and the manager that finds a converter, or the shortest chain of them.
#pragma once

#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "lumo/image/export.h"
#include "lumo/image/formats.h"

namespace lumo::image {

class SurfaceData;

class LUMO_IMAGE_API Converter {
 public:
  static const std::shared_ptr<Converter> Null;

  Converter() = default;
  Converter(const Converter&) = default;
  Converter& operator=(const Converter&) = default;
  virtual ~Converter();

  // A new surface of the source's size in `target` (rows padded to four bytes
  // unless the converter says otherwise), or empty when it cannot be made.
  // The source is only read.
  virtual std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) = 0;
};

// A chain of converters; Convert ignores its target and yields the format of
// the last step. At most two intermediate surfaces are alive at a time.
class LUMO_IMAGE_API ConverterSequence : public Converter {
 public:
  struct Step {
    std::shared_ptr<Converter> converter;
    PixelFormatDescriptor produces;
  };

  void Append(std::shared_ptr<Converter> converter, const PixelFormatDescriptor& produces);
  const std::vector<Step>& Steps() const { return steps_; }

  std::shared_ptr<SurfaceData> Convert(const SurfaceData* source, const PixelFormatDescriptor& target) override;

 private:
  std::vector<Step> steps_;
};

class LUMO_IMAGE_API ConverterManager {
 public:
  using FormatPair = std::pair<PixelFormatDescriptor, PixelFormatDescriptor>;

  // The process-wide manager, with the built-in conversions registered.
  static ConverterManager* Instance();

  ConverterManager(const ConverterManager& other);
  ConverterManager& operator=(const ConverterManager& other);
  ~ConverterManager();

  // Adds a pair, or replaces its converter when `replace` is set; false when
  // the pair exists and `replace` is not set. A new pair is searched after the
  // existing edges of its source. Must not overlap any other use of the manager.
  bool RegisterConverter(const FormatPair& formats, std::shared_ptr<Converter> converter, bool replace);

  // The registered converter of the pair; otherwise a new sequence along the
  // shortest chain (each step logged at level -10 as "Convert From X To Y");
  // otherwise Converter::Null. A pair of equal formats needs its own converter.
  std::shared_ptr<Converter> GetConverter(const FormatPair& formats) const;
  std::shared_ptr<Converter> GetConverter(const PixelFormatDescriptor& from, const PixelFormatDescriptor& to) const;

 private:
  using Graph = std::map<PixelFormatDescriptor, std::vector<PixelFormatDescriptor>>;

  ConverterManager();

  std::map<FormatPair, std::shared_ptr<Converter>> converters_;
  std::unique_ptr<Graph> graph_;
};

}  // namespace lumo::image
