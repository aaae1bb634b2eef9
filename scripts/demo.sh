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

# Image files: a tiny 2x2 A8R8G8B8 DDS written by hand, described, given a full mip chain and
# described again.
{ set +x; } 2>/dev/null
demo_dir=$(mktemp -d)
trap 'rm -rf "$demo_dir"' EXIT
le32() {  # N as four little-endian bytes
  printf "$(printf '\\x%02x\\x%02x\\x%02x\\x%02x' $(($1 & 255)) $(($1 >> 8 & 255)) $(($1 >> 16 & 255)) $(($1 >> 24 & 255)))"
}
{
  printf 'DDS '
  le32 124; le32 0x1007; le32 2; le32 2; le32 8; le32 1; le32 1   # size, flags, height, width, pitch, depth, mips
  for _ in 1 2 3 4 5 6 7 8 9 10 11; do le32 0; done
  le32 32; le32 0x41; le32 0; le32 32                              # RGB|ALPHAPIXELS, 32 bits
  le32 0x00FF0000; le32 0x0000FF00; le32 0x000000FF; le32 0xFF000000
  le32 0x1000; le32 0; le32 0; le32 0; le32 0
  printf '\x00\x00\xff\xff\x00\xff\x00\xff\xff\x00\x00\xff\xff\xff\xff\xff'  # red, green / blue, white
} >"$demo_dir/tiny.dds"
set -x
"$tool" info "$demo_dir/tiny.dds"
"$tool" convert "$demo_dir/tiny.dds" "$demo_dir/tiny_mips.dds" --mips --filter bilinear
"$tool" info "$demo_dir/tiny_mips.dds"
"$tool" convert "$demo_dir/tiny.dds" "$demo_dir/tiny_rgb.dds" --format R8G8B8 --flip-vertical
"$tool" info "$demo_dir/tiny_rgb.dds"

# A real file from the shared corpus, when it is around.
corpus=../shared/corpus/dds/nv_bc1_mips.dds
if [ -f "$corpus" ]; then
  "$tool" info "$corpus"
fi
