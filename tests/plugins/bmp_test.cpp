// The BMP plugin.
#include <gtest/gtest.h>
