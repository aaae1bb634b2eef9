#!/bin/sh
# Test of the tool's block-format work: convert encoding block formats after
# the mips and decoding block input, diff (numbers and --min-psnr exit
# status) and preview, on generated and corpus textures.
# Usage: blocks_test.sh PATH/TO/lmimage [CORPUS_DIR]
set -u

tool=${1:?usage: blocks_test.sh PATH/TO/lmimage [CORPUS_DIR]}
corpus=${2:-}
case $tool in /*) ;; *) tool=$PWD/$tool ;; esac
. "$(dirname "$0")/test_lib.sh"

# PSNR of the "all" line of the last diff.
psnr() { awk '$1 == "all" { print $4 }' "$tmp/out"; }
# psnr_at_least VALUE FLOOR
psnr_at_least() { awk -v v="$1" -v f="$2" 'BEGIN { exit !(v == "inf" || v + 0 >= f + 0) }'; }

if [ -z "$corpus" ] || [ ! -f "$corpus/png/libpng_rgb-8.png" ]; then
  echo "SKIP: corpus not found (set LMIMAGE_CORPUS_DIR)"
  exit 0
fi
src="$corpus/png/libpng_rgb-8.png"       # 256 x 256 RGB
alpha="$corpus/png/libpng_rgb-8-tRNS.png"

# --- encoding: every encodable family, each quality, through diff ---
for case in "DXT1 dds 33" "DXT1_A1 ktx 33" "DXT3 dds 33" "DXT5 dds 33" "BC4_unsigned dds 35" \
            "BC5_unsigned dds 35" "ASTC_RGBA_4x4 astc 36" "ASTC_RGBA_6x6 ktx 30" "ASTC_RGBA_12x12 astc 24"; do
  set -- $case
  for quality in fast normal best; do
    out="$tmp/$1-$quality.$2"
    run convert "$src" "$out" --format "$1" --quality "$quality"
    expect_status 0
    run info "$out"
    grep -q "$1" "$tmp/out" || fail "info $out does not name $1"
    # BC4 keeps red only, BC5 red and green: compare those channels.
    channels=RGB
    case $1 in BC4*) channels=R ;; BC5*) channels=RG ;; esac
    run diff "$src" "$out" --channels "$channels"
    expect_status 0
    value=$(psnr)
    psnr_at_least "$value" "$3" || fail "$1 $quality: PSNR $value dB below $3"
    eval "psnr_$quality=\$value"
  done
  psnr_at_least "$psnr_best" "$(awk -v f="$psnr_fast" 'BEGIN { print f - 0.05 }')" ||
    fail "$1: best ($psnr_best dB) worse than fast ($psnr_fast dB)"
done

# Mips are made uncompressed, then every level is encoded.
run convert "$src" "$tmp/mips.dds" --format DXT5 --mips --filter lanczos3
expect_status 0
run info "$tmp/mips.dds"
grep -q "^levels: *9$" "$tmp/out" || fail "DXT5 --mips: not 9 levels"
grep -q "^level 8: *1x1x1, 16 bytes" "$tmp/out" || fail "DXT5 --mips: no 1x1 level of one block"
run diff "$tmp/mips.dds" "$tmp/mips.dds" --min-psnr 99
expect_status 0

# Transparent pixels survive DXT1_A1 and DXT5 but not opaque DXT1.
run convert "$alpha" "$tmp/a1.ktx" --format DXT1_A1
expect_status 0
run diff "$alpha" "$tmp/a1.ktx" --channels A
psnr_at_least "$(psnr)" 20 || fail "DXT1_A1 alpha PSNR $(psnr)"

# --- the PSNR gate and shapes ---
run diff "$src" "$tmp/DXT1-normal.dds" --min-psnr 30
expect_status 0
run diff "$src" "$tmp/DXT1-normal.dds" --min-psnr 90
expect_status 1
expect_err_lines 1
grep -q "below --min-psnr" "$tmp/err" || fail "--min-psnr failure does not say why"
run diff "$src" "$tmp/mips.dds"
expect_status 1
grep -q "different shape" "$tmp/err" || fail "diff of 1 against 9 levels: $(cat "$tmp/err")"
run diff "$src" "$tmp/DXT1-normal.dds" --image "$tmp/d.png" --scale 8
expect_status 0
run info "$tmp/d.png"
grep -q "256" "$tmp/out" || fail "difference image is not 256 wide"

# --- block input is decoded when the output cannot hold it ---
run convert "$corpus/dds/nv_bc1_mips.dds" "$tmp/bc1.png"
expect_status 0
run diff "$corpus/dds/nv_bc1_mips.dds" "$tmp/bc1.png"
expect_status 1  # 7 levels against 1
# Blocks only resampled are encoded again in their own format; without an encoder that fails.
run convert "$corpus/dds/nv_bc1_mips.dds" "$tmp/bc1-resized.dds" --resize 32x32 --mips --quality best
expect_status 0
grep -q "DXT1, 32x32, 6 levels" "$tmp/out" || fail "resized DXT1: $(cat "$tmp/out")"
run convert "$corpus/dds/pillow_bc7-argb-8bpp_MipMaps-1.dds" "$tmp/bc7.dds" --mips
expect_status 1
expect_err_lines 1

# --- usage errors, found before any work ---
for args in "convert $src $tmp/u.dds --format BC7" \
            "convert $src $tmp/u.dds --format DXT5 --quality superb" "preview $src $tmp/u.jpg" \
            "diff $src" "diff $src $src --min-psnr x" "diff $src $src --channels Q" "preview $src"; do
  run $args
  expect_status 2
  expect_err_lines 1
done
[ ! -e "$tmp/u.dds" ] || fail "a usage error wrote a file"

# --- preview and diff on every texture of the corpus that loads ---
previewed=0
for file in "$corpus"/dds/*.dds "$corpus"/ktx/*.ktx "$corpus"/pvr/*.pvr "$corpus"/pkm/*.pkm* "$corpus"/astc/*.astc; do
  "$tool" info "$file" >/dev/null 2>&1 || continue
  run preview "$file" "$tmp/sheet.png" --max-tile 64
  expect_status 0
  run diff "$file" "$file" --min-psnr 99
  expect_status 0
  previewed=$((previewed + 1))
done
[ "$previewed" -ge 60 ] || fail "only $previewed corpus textures previewed"

# A cube with mips: 6 faces x 6 levels, each tile at its real size.
run preview "$corpus/dds/nv_cube_bc1_mips.dds" "$tmp/cube.png"
[ "$(grep -c "face" "$tmp/out")" -eq 36 ] || fail "cube preview: $(grep -c face "$tmp/out") face tiles, expected 36"
grep -q "level 0 face -Z: 32x32" "$tmp/out" || fail "cube preview lacks level 0 face -Z at 32x32"
# A volume of 3-D blocks: every slice.
run preview "$corpus/astc/astcenc_3d_4x4x4.astc" "$tmp/volume.png"
expect_status 0
[ "$(grep -c "slice" "$tmp/out")" -eq 6 ] || fail "volume preview: $(grep -c slice "$tmp/out") slices, expected 6"
# Tiles above --max-tile are shrunk.
run preview "$src" "$tmp/small.png" --max-tile 100
grep -q "shown 100x100" "$tmp/out" || fail "--max-tile 100 did not shrink the 256 x 256 tile"

finish "block"
