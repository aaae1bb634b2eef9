// The HDR plugin.
#include <gtest/gtest.h>
