// The TGA plugin.
#include <gtest/gtest.h>
