#!/bin/sh
# Command-line test of the lmimage tool: exit statuses, exact report lines and
# the one-line error convention. Usage: cli_test.sh PATH/TO/lmimage
set -u

tool=${1:?usage: cli_test.sh PATH/TO/lmimage}
tmp=$(mktemp -d) || exit 1
trap 'rm -rf "$tmp"' EXIT
failures=0

fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

# run ARGS...: runs the tool, keeping stdout, stderr and the exit status.
run() {
  last="lmimage $*"
  "$tool" "$@" >"$tmp/out" 2>"$tmp/err"
  status=$?
}

expect_status() {
  [ "$status" -eq "$1" ] || fail "$last: exit status $status, expected $1"
}

# The whole line must match, so column alignment is checked too.
expect_line() {
  grep -Fqx -- "$1" "$tmp/out" || fail "$last: no stdout line '$1'"
}

# Errors are exactly one line on stderr and nothing on stdout.
expect_error() {
  [ "$(cat "$tmp/err")" = "$1" ] || fail "$last: stderr is '$(cat "$tmp/err")', expected '$1'"
  [ ! -s "$tmp/out" ] || fail "$last: stdout not empty on error"
}

# ---- Help and verb dispatch ----
run --help;             expect_status 0; expect_line "  format        describe pixel formats given by name or descriptor value"
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

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed" >&2
  exit 1
fi
echo "all CLI checks passed"
