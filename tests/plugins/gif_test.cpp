// The GIF plugin.
#include <gtest/gtest.h>
