#!/bin/sh
# Command-line test of the lmimage tool: exit statuses, exact report lines and
# the one-line error convention. Usage: cli_test.sh PATH/TO/lmimage [CORPUS_DIR]
# (the checks on real files are skipped without a corpus folder).
set -u

tool=${1:?usage: cli_test.sh PATH/TO/lmimage [CORPUS_DIR]}
corpus=${2:-}
. "$(dirname "$0")/test_lib.sh"

# Errors are exactly one line on stderr and nothing on stdout.
expect_error() {
  [ "$(cat "$tmp/err")" = "$1" ] || fail "$last: stderr is '$(cat "$tmp/err")', expected '$1'"
  [ ! -s "$tmp/out" ] || fail "$last: stdout not empty on error"
}

# ---- Help and verb dispatch ----
run --help;             expect_status 0; expect_line "  format        describe pixel formats given by name or descriptor value"
expect_line "  info          describe image files: container, texture kind, pixel format and levels"
expect_line "  convert-path  show the converters a pixel conversion goes through"
run help;               expect_status 0
run help format;        expect_status 0; expect_line "usage: lmimage format NAME-or-0xHEX..."
run format --help;      expect_status 0; expect_line "       lmimage format --list"
run format --bogus -h;  expect_status 0
run;                    expect_status 2
run frob;               expect_status 2; expect_error "lmimage: 'frob': unknown verb (see 'lmimage --help')"
run help frob;          expect_status 2; expect_error "lmimage: help: 'frob': unknown verb"

# ---- Usage errors of the verb ----
run format;             expect_status 2; expect_error "lmimage: format: missing NAME-or-0xHEX argument"
run format --bogus R8;  expect_status 2; expect_error "lmimage: format: '--bogus': unknown option"
run format --list=yes;  expect_status 2; expect_error "lmimage: format: '--list=yes': option takes no value"
run format --list R8;   expect_status 2; expect_error "lmimage: format: 'R8': --list takes no format arguments"
run format Q8;          expect_status 2; expect_error "lmimage: format: 'Q8': not a pixel format name or 0x hex value"
run format r8;          expect_status 2; expect_error "lmimage: format: 'r8': not a pixel format name or 0x hex value"
run format u_s_R8;      expect_status 2
run format R64;         expect_status 2
run format "";          expect_status 2; expect_error "lmimage: format: '': not a pixel format name or 0x hex value"
# Names the parser accepts but that describe no format (descriptor 0, 0x3).
run format s_;          expect_status 2; expect_error "lmimage: format: 's_': not a pixel format name or 0x hex value"
run format 0x;          expect_status 2
run format 0x0;         expect_status 2; expect_error "lmimage: format: '0x0': does not decode to a pixel format"
run format 0x12g;       expect_status 2
run format 0x10000000000000000; expect_status 2
run format -- --list;   expect_status 2; expect_error "lmimage: format: '--list': not a pixel format name or 0x hex value"
# A control character must not break the one-line error.
run format "$(printf 'R8\nG8')"; expect_status 2; expect_error "lmimage: format: 'R8\\x0aG8': not a pixel format name or 0x hex value"
# Every argument is checked before anything is printed.
run format R8 Q8 G8;    expect_status 2; expect_error "lmimage: format: 'Q8': not a pixel format name or 0x hex value"

# ---- Uncompressed reports ----
run format A8R8G8B8;    expect_status 0
expect_line "descriptor:       0x810203080820500"
expect_line "name:             A8R8G8B8"
expect_line "compressed:       no"
expect_line "channels:         4"
expect_line "bits per pixel:   32"
expect_line "bytes per pixel:  4"
expect_line "component 0:      A 8 unsigned"
expect_line "component 3:      B 8 unsigned"
grep -q '^component 4' "$tmp/out" && fail "$last: five components"

run format u_A32sB32sG32sR32s; expect_status 0
expect_line "descriptor:       0x6009803601180504"
expect_line "unnormalized:     yes"
expect_line "component 2:      G 32 signed"

run format R8sf B10fG11fR11f R5G6B5; expect_status 0
expect_line "component 0:      R 8 signed float"
expect_line "component 1:      G 11 float"
expect_line "descriptor:       0x144060c14200"
expect_line "bits per pixel:   16"
[ "$(grep -c '^descriptor:' "$tmp/out")" -eq 3 ] || fail "$last: expected three blocks"
[ "$(grep -c '^$' "$tmp/out")" -eq 2 ] || fail "$last: expected blocks separated by single blank lines"

# Hex input decodes to the same report as the name; reserved bits 3-7 are ignored.
run format 0x0000810203080820500; expect_status 0; expect_line "name:             A8R8G8B8"
run format 0x20208;     expect_status 0; expect_line "name:             R8"

# ---- Compressed reports ----
run format 0x603;       expect_status 0
expect_line "name:             s_DXT5"
expect_line "srgb:             yes"
expect_line "bits per pixel:   8"
expect_line "format number:    6"
expect_line "block:            4x4x1"
expect_line "bytes per block:  16"
grep -q '^component' "$tmp/out" && fail "$last: compressed format lists components"
"$tool" format s_DXT5 | cmp -s - "$tmp/out" || fail "s_DXT5 and 0x603 report differently"

run format ASTC_RGBA_5x4 DXT1 PVRTC_2bpp_RGBA ASTC_RGBA_6x6x5; expect_status 0
expect_line "descriptor:       0x2001"
expect_line "bits per pixel:   128/20"
expect_line "bytes per pixel:  16/20"
expect_line "bytes per pixel:  1/2"
expect_line "bytes per pixel:  1/4"
expect_line "minimum size:     16x8x1"
expect_line "block:            6x6x5"
expect_line "bits per pixel:   128"

# Format 55 decodes but has no name.
run format 0x3701;      expect_status 2; expect_error "lmimage: format: '0x3701': compressed format number 55 has no name"

# ---- The compressed format table ----
run format --list;      expect_status 0
[ "$(wc -l <"$tmp/out")" -eq 55 ] || fail "$last: expected a header and 54 formats"
normalized=$(tr -s ' ' <"$tmp/out" | sed 's/^ //')
echo "$normalized" | grep -Fqx "1 DXT1 4x4x1 8 1x1x1" || fail "$last: DXT1 row"
echo "$normalized" | grep -Fqx "7 PVRTC_2bpp_RGB 8x4x1 8 16x8x1" || fail "$last: PVRTC_2bpp_RGB row"
echo "$normalized" | grep -Fqx "54 ASTC_RGBA_6x6x6 6x6x6 16 1x1x1" || fail "$last: ASTC_RGBA_6x6x6 row"
# Every listed name is accepted back and reports its own number.
names=$(sed 1d "$tmp/out" | awk '{print $2}')
numbers=$(sed 1d "$tmp/out" | awk '{print $1}')
# shellcheck disable=SC2086
run format $names;      expect_status 0
[ "$(grep '^format number:' "$tmp/out" | awk '{print $3}')" = "$numbers" ] || fail "listed names do not round-trip"

# ---- convert-path ----
run convert-path R8G8B8 A8B8G8R8; expect_status 0
expect_line "R8G8B8 -> A8B8G8R8: 1 step (direct converter)"
# Equal-length chains: the lower descriptor value is explored first.
run convert-path L8 R8;           expect_status 0
expect_line "L8 -> R8: 2 steps (each makes a new surface)"
expect_line "  1  L8 -> B8G8R8"
expect_line "  2  B8G8R8 -> R8"
run convert-path 0x4500 L8;       expect_status 0; expect_line "  3  B8G8R8 -> L8"
run convert-path R8 R8;           expect_status 1
expect_error "lmimage: convert-path: 'R8 -> R8': no converter or chain of converters"
run convert-path R8;              expect_status 2
run convert-path R8 Q8;           expect_status 2

# ---- Image files: info and convert ----
# le32 N: N as four little-endian bytes.
le32() {
  printf "$(printf '\\%03o\\%03o\\%03o\\%03o' $(($1 & 255)) $(($1 >> 8 & 255)) $(($1 >> 16 & 255)) $(($1 >> 24 & 255)))"
}
# dds_header MIPCOUNT PFFLAGS FOURCC BITS RMASK GMASK BMASK AMASK: the 128-byte header of a 2x2 file.
dds_header() {
  printf 'DDS '
  le32 124; le32 0x1007; le32 2; le32 2; le32 0; le32 1; le32 "$1"
  i=0; while [ $i -lt 11 ]; do le32 0; i=$((i + 1)); done
  le32 32; le32 "$2"; le32 "$3"; le32 "$4"; le32 "$5"; le32 "$6"; le32 "$7"; le32 "$8"
  le32 0x1000; le32 0; le32 0; le32 0; le32 0
}
# write_dds FILE MIPCOUNT: A8R8G8B8 by legacy masks (RGB|ALPHAPIXELS), one level of
# pixels (B G R A): row 0 = 1 2 3 255, 4 5 6 255; row 1 = 7 8 9 255, 10 11 12 255.
write_dds() {
  {
    dds_header "$2" 0x41 0 32 0x00FF0000 0x0000FF00 0x000000FF 0xFF000000
    printf '\001\002\003\377\004\005\006\377\007\010\011\377\012\013\014\377'
  } >"$1"
}
# write_dxt1 FILE: FourCC DXT1, one 8-byte block.
write_dxt1() {
  { dds_header 1 0x4 0x31545844 0 0 0 0 0; printf '\377\377\0\0\0\0\0\0'; } >"$1"
}
# pixels FILE: the bytes after the 128-byte header, as "01 02 ...".
pixels() { od -An -tx1 -v -j128 "$1" | tr -s ' \n' '  ' | sed 's/^ //; s/ $//'; }

dds=$tmp/in.dds
write_dds "$dds" 1
[ "$(wc -c <"$dds")" -eq 144 ] || fail "test input: expected 144 bytes"
cp "$dds" "$tmp/in.copy"

run info "$dds";        expect_status 0
expect_line "file:             $dds"
expect_line "container:        DDS"
expect_line "type:             Surface"
expect_line "format:           A8R8G8B8"
expect_line "descriptor:       0x810203080820500"
expect_line "DXGI:             87"
expect_line "D3D9:             21"
expect_line "GL:               format 0x80e1, type 0x1401, internal 0x8058"
expect_line "Vulkan:           44"
expect_line "Metal:            80"
expect_line "engine:           2"
expect_line "size:             2x2"
expect_line "depth:            1"
expect_line "layers:           1"
expect_line "faces:            1"
expect_line "levels:           1"
expect_line "level 0:          2x2x1, 16 bytes"
expect_line "origin:           top-down"
[ -s "$tmp/err" ] && fail "$last: stderr not empty"

# A mip count beyond the data: the levels that fit load, the library's warning
# lands in the report instead of on stderr.
write_dds "$tmp/short_mips.dds" 2
run info "$tmp/short_mips.dds"; expect_status 0; expect_line "levels:           1"
grep -q '^warning: ' "$tmp/out" || fail "$last: no warning field"
[ -s "$tmp/err" ] && fail "$last: stderr not empty"

# Compressed formats: FourCC codes show their characters; GL has a compressed code.
write_dxt1 "$tmp/dxt1.dds"
run info "$tmp/dxt1.dds"; expect_status 0
expect_line "format:           DXT1"
expect_line "D3D9:             827611204 (DXT1)"
expect_line "GL:               compressed 0x83f0"
expect_line "level 0:          2x2x1, 8 bytes"

# Every file is tried; each bad one gets one error line, the good ones a report.
: >"$tmp/empty.dds"
head -c 100 "$dds" >"$tmp/short.dds"
run info "$tmp/missing.dds" "$dds" "$tmp/empty.dds" "$tmp/short.dds"; expect_status 1
[ "$(grep -c '^file:' "$tmp/out")" -eq 1 ] || fail "$last: expected one report"
expect_line "file:             $dds"
[ "$(cat "$tmp/err")" = "lmimage: info: '$tmp/missing.dds': cannot read: No such file or directory
lmimage: info: '$tmp/empty.dds': not an image file of a known format
lmimage: info: '$tmp/short.dds': cannot decode as DDS" ] || fail "$last: stderr is '$(cat "$tmp/err")'"
run info "$tmp";        expect_status 1; expect_error "lmimage: info: '$tmp': cannot read: Is a directory"
run info;               expect_status 2; expect_error "lmimage: info: missing FILE argument"

# ---- convert: what is written ----
out=$tmp/out.dds
run convert "$dds" "$out" --mips; expect_status 0
expect_line "wrote $out: DDS, A8R8G8B8, 2x2, 2 levels, 148 bytes"
# Level 1 is the rounded box average of the four pixels.
[ "$(pixels "$out")" = "01 02 03 ff 04 05 06 ff 07 08 09 ff 0a 0b 0c ff 06 07 08 ff" ] ||
  fail "$last: pixels $(pixels "$out")"
run info "$out";        expect_status 0; expect_line "level 1:          1x1x1, 4 bytes"

# Conversion, flip and mips together; the flip shows in the row order.
run convert "$dds" "$out" --format R8G8B8 --flip-vertical --mips --filter point; expect_status 0
expect_line "wrote $out: DDS, R8G8B8, 2x2, 2 levels, 143 bytes"
[ "$(pixels "$out" | cut -c1-35)" = "07 08 09 0a 0b 0c 01 02 03 04 05 06" ] || fail "$last: pixels $(pixels "$out")"
# A format some interfaces lack prints '-' for them.
run info "$out";        expect_status 0; expect_line "format:           R8G8B8"; expect_line "DXGI:             -"

# Converting to the format the file already has is no conversion, not an error;
# the upper-case extension still names DDS.
run convert "$dds" "$tmp/same.DDS" --format 0x810203080820500; expect_status 0
[ "$(pixels "$tmp/same.DDS")" = "$(pixels "$dds")" ] || fail "$last: pixels changed"
cmp -s "$dds" "$tmp/in.copy" || fail "convert changed its input file"

# ---- convert: usage errors come before any work ----
run convert "$dds";     expect_status 2; expect_error "lmimage: convert: expects exactly two files: IN OUT"
run convert "$dds" "$dds"; expect_status 2
expect_error "lmimage: convert: '$dds': is the input file; choose another output name"
ln -s "$dds" "$tmp/link.dds"
run convert "$dds" "$tmp/link.dds"; expect_status 2
expect_error "lmimage: convert: '$tmp/link.dds': is the input file; choose another output name"
cmp -s "$dds" "$tmp/in.copy" || fail "a refused convert changed its input file"
run convert "$dds" "$tmp/noext"; expect_status 2
expect_error "lmimage: convert: '$tmp/noext': no file extension to choose the output format from"
run convert "$tmp/missing.dds" "$tmp/x.xyz"; expect_status 2
grep -Fq "lmimage: convert: '$tmp/x.xyz': no image format for extension '.xyz' (writable: " "$tmp/err" ||
  fail "$last: stderr is '$(cat "$tmp/err")'"
run convert "$dds" "$tmp/x.dds" --filter box; expect_status 2
expect_error "lmimage: convert: '--filter': only applies with --mips"
run convert "$dds" "$tmp/x.dds" --mips --filter sinc; expect_status 2
expect_error "lmimage: convert: 'sinc': unknown filter (box, bilinear, bicubic, bspline, catmullrom, lanczos3, point)"
run convert "$dds" "$tmp/x.dds" --format Q8; expect_status 2
expect_error "lmimage: convert: 'Q8': not a pixel format name or 0x hex value"
[ -e "$tmp/x.dds" ] && fail "a usage error wrote a file"

# ---- convert: failures leave the output as it was ----
cp "$dds" "$tmp/keep.dds"
run convert "$dds" "$tmp/keep.dds" --format D24S8; expect_status 1
expect_error "lmimage: convert: '$dds': cannot convert A8R8G8B8 to D24S8"
cmp -s "$tmp/keep.dds" "$dds" || fail "$last: failed convert changed the existing output"
# Block input is decoded for the mips and encoded again in its own format.
run convert "$tmp/dxt1.dds" "$tmp/x.dds" --mips; expect_status 0
expect_line "wrote $tmp/x.dds: DDS, DXT1, 2x2, 2 levels, $(wc -c <"$tmp/x.dds") bytes"
run convert "$tmp/missing.dds" "$tmp/x.dds"; expect_status 1
expect_error "lmimage: convert: '$tmp/missing.dds': cannot read: No such file or directory"
run convert "$tmp/short.dds" "$tmp/x.dds"; expect_status 1
expect_error "lmimage: convert: '$tmp/short.dds': cannot decode as DDS"
run convert "$dds" "$tmp/nodir/x.dds"; expect_status 1
expect_error "lmimage: convert: '$tmp/nodir/x.dds': cannot write: No such file or directory"
# The rename onto a folder fails; the temporary file must not stay behind.
mkdir "$tmp/folder.dds"
run convert "$dds" "$tmp/folder.dds"; expect_status 1
expect_error "lmimage: convert: '$tmp/folder.dds': cannot write: Is a directory"
ls "$tmp" | grep -q 'tmp-' && fail "$last: temporary file left behind"

# ---- Real files, when the corpus is around ----
if [ -n "$corpus" ] && [ -d "$corpus" ]; then
  run info "$corpus/dds/nv_rgba_mips.dds"; expect_status 0
  expect_line "format:           A8R8G8B8"; expect_line "levels:           7"

  # Block-compressed chains cross containers without being decoded: DDS -> KTX
  # -> PVR -> DDS gives the very file DDS -> DDS gives (cube and array included).
  for name in nv_bc1_mips nv_bc3_mips nv_bc5_mips pillow_bc6h pillow_bc7-argb-8bpp_MipMaps-1 \
              pillow_DXGI_FORMAT_BC7_UNORM_SRGB nv_cube_bc1_mips py_dx10_array3_bc1; do
    in=$corpus/dds/$name.dds
    run convert "$in" "$tmp/$name.ktx"; expect_status 0
    run convert "$tmp/$name.ktx" "$tmp/$name.pvr"; expect_status 0
    run convert "$tmp/$name.pvr" "$tmp/$name.back.dds"; expect_status 0
    run convert "$in" "$tmp/$name.direct.dds"; expect_status 0
    cmp -s "$tmp/$name.back.dds" "$tmp/$name.direct.dds" || fail "$name: blocks changed on the way through KTX and PVR"
  done

  # A container that cannot hold a format says so and names those that can.
  run convert "$corpus/png/libpng_gray-1.png" "$tmp/grey1.ktx"; expect_status 1
  expect_error "lmimage: convert: '$tmp/grey1.ktx': the KTX container cannot hold A1 pixels; containers that can: PNG, DDS, PVR (or convert them with --format)"
  [ -e "$tmp/grey1.ktx" ] && fail "a refused convert wrote a file"
  # Blocks such a container cannot hold are decoded instead.
  run convert "$corpus/pkm/etc1tool_37x21.pkm" "$tmp/etc1.dds"; expect_status 0
  expect_line "wrote $tmp/etc1.dds: DDS, A8B8G8R8, 37x21, 1 level, $(wc -c <"$tmp/etc1.dds") bytes"

  # Container details: the KTX orientation and keys, the PVR metadata.
  run info "$corpus/ktx/py_rgb8_odd_orient_up.ktx"; expect_status 0
  expect_line "origin:           bottom-up"
  expect_line "KTX key/value:    28 bytes, 1 key: KTXOrientation"
  expect_line "KTX orientation:  'S=r,T=u'"
  expect_line "alpha plane:      -"
  run info "$corpus/pvr/v3_l8_orient_up.pvr"; expect_status 0
  expect_line "PVR version:      3"
  expect_line "PVR metadata:     'PVR.' key 3 (3 bytes)"
else
  echo "no corpus folder given or found: checks on real files skipped"
fi

finish "CLI"
