#!/usr/bin/env bash
# Builds lmimage in Release and shows what the command-line tool reports for a few formats
# and conversions.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
lmimage_install_deps

cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j"$(nproc 2>/dev/null || echo 2)" --target lmimage_tool
tool=build/release/tools/lmimage

set -x
"$tool" format A8R8G8B8 s_DXT5 R5G6B5 0x900a403901240500
"$tool" format ASTC_RGBA_5x4
"$tool" format --list
"$tool" convert-path R5G6B5 L8
"$tool" convert-path A4 s_R8G8B8A8
