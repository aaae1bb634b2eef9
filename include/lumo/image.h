// Umbrella header: every public name of the library.
#pragma once

#include "lumo/image/export.h"
#include "lumo/image/half.h"
#include "lumo/image/compressed_formats.h"
#include "lumo/image/formats.h"
