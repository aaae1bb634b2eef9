// Umbrella header: every public name of the library.
#pragma once

#include "lumo/image/export.h"
#include "lumo/image/half.h"
#include "lumo/image/compressed_formats.h"
#include "lumo/image/formats.h"
#include "lumo/image/format_tables.h"
#include "lumo/image/surface_data.h"
#include "lumo/image/volume_data.h"
#include "lumo/image/mipmaps.h"
#include "lumo/image/pyramid.h"
#include "lumo/image/converters.h"
#include "lumo/image/engines.h"
#include "lumo/image/image_factory.h"
