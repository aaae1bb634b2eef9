// The library's own table of conversions, registered by the converter manager.
#pragma once

#include <memory>

#include "lumo/image/converters.h"

namespace lumo::image::detail {

using AddConversion = void (*)(void* context, PixelFormatDescriptor from, PixelFormatDescriptor to,
                               const std::shared_ptr<Converter>& converter);

// Calls add once per built-in pair; one converter object may serve several pairs.
void RegisterBuiltInConversions(AddConversion add, void* context);

}  // namespace lumo::image::detail
