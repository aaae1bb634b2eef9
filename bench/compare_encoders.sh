#!/bin/sh
# Our block encoders against the command-line encoders Debian ships for the
# same job, on the same photo-like picture, in one run: wall time of the whole
# command (read, encode, write) and PSNR of what an independent decoder makes
# of each result (nvdecompress for DXT1 and DXT5, astcenc -dl for ASTC),
# measured with lmimage diff against the source. nvdecompress cannot read the
# DX10 header BC5 is written with, so BC5 files are decoded by lmimage, whose
# BC5 decoder gives nvdecompress's pixels exactly on every nvcompress file.
# Usage: compare_encoders.sh BUILD_DIR [SIZE]   (needs libnvtt-bin and astcenc)
set -eu
build=$(cd "${1:?usage: compare_encoders.sh BUILD_DIR [SIZE]}" && pwd)
size=${2:-2048}
tool=$build/tools/lmimage
photo=$build/bench/lmimage_make_photo
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cd "$tmp"
"$photo" photo.png "$size"
"$photo" photo_alpha.png "$size" alpha

seconds() {  # seconds COMMAND...: wall time, output discarded
  /usr/bin/time -f %e -o time.txt "$@" >/dev/null 2>&1 || { echo "failed: $*" >&2; exit 1; }
  cat time.txt
}
psnr() {  # psnr SOURCE DECODED CHANNELS
  "$tool" diff "$1" "$2" --channels "$3" | awk '$1 == "all" { print $4 }'
}
row() { printf '%-16s %-7s %8s s %8s dB   %8s s %8s dB\n' "$@"; }

echo "picture: ${size}x${size} photo-like (bench/photo.h), $(nproc) processors"
printf '%-16s %-7s %21s   %21s\n' format quality "lmimage" "reference tool"

# BC: nvcompress has two settings, -fast and its default (used for normal and best).
for entry in "DXT1 bc1 photo RGB -color" "DXT5 bc3 photo_alpha RGBA -alpha" "BC5_unsigned bc5 photo RG -color"; do
  set -- $entry
  for quality in fast normal best; do
    flag=""; [ "$quality" = fast ] && flag=-fast
    ours=$(seconds "$tool" convert "$3.png" ours.dds --format "$1" --quality "$quality")
    theirs=$(seconds nvcompress -nomips $flag "$5" "-$2" "$3.png" nv.dds)
    if [ "$2" = bc5 ]; then
      cp ours.dds ours_decoded.dds && cp nv.dds nv_decoded.dds
    else
      nvdecompress ours.dds >/dev/null 2>&1 && nvdecompress nv.dds >/dev/null 2>&1
      mv ours.tga ours_decoded.tga && mv nv.tga nv_decoded.tga
    fi
    row "$1" "$quality" "$ours" "$(psnr "$3.png" ours_decoded.* "$4")" "$theirs" "$(psnr "$3.png" nv_decoded.* "$4")"
    rm -f ours_decoded.* nv_decoded.*
  done
done

# ASTC: astcenc's presets -fast, -medium and -thorough match our three settings.
for block in 4x4 6x6 8x8; do
  for quality in fast normal best; do
    preset=-medium; [ "$quality" = fast ] && preset=-fast; [ "$quality" = best ] && preset=-thorough
    ours=$(seconds "$tool" convert photo.png ours.astc --format "ASTC_RGBA_$block" --quality "$quality")
    theirs=$(seconds astcenc -cl photo.png theirs.astc "$block" "$preset")
    astcenc -dl ours.astc ours.png >/dev/null && astcenc -dl theirs.astc theirs.png >/dev/null
    row "ASTC $block" "$quality" "$ours" "$(psnr photo.png ours.png RGB)" "$theirs" "$(psnr photo.png theirs.png RGB)"
  done
done
