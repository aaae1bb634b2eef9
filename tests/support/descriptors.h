// Pixel format descriptors from numbers and names, for tables of test cases.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "lumo/image/formats.h"

namespace lumo::image::testing {

inline PixelFormatDescriptor D(unsigned long long value) { return static_cast<PixelFormatDescriptor>(value); }
inline unsigned long long V(PixelFormatDescriptor descriptor) { return static_cast<unsigned long long>(descriptor); }

// The descriptor a name parses to; a name that does not parse fails the test.
inline PixelFormatDescriptor Named(const std::string& name) {
  PixelFormatDescriptor d{};
  EXPECT_TRUE(FromString(name, &d)) << name;
  return d;
}

}  // namespace lumo::image::testing
