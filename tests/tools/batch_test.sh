#!/bin/sh
# Batch conversion and the convert pipeline of the lmimage tool: folder trees,
# file lists, up-to-date outputs, failures in the middle of a batch, exit
# statuses, output modes, sRGB-correct mips, resampling and writer flags.
# Usage: batch_test.sh PATH/TO/lmimage [CORPUS_DIR] (the checks on real files
# are skipped without a corpus folder).
set -u

tool=${1:?usage: batch_test.sh PATH/TO/lmimage [CORPUS_DIR]}
corpus=${2:-}
case $tool in /*) ;; *) tool=$(pwd)/$tool ;; esac
. "$(dirname "$0")/test_lib.sh"

expect_count() {  # PATTERN FILE N: lines of FILE matching PATTERN (fixed string)
  n=$(grep -Fc -- "$1" "$2")
  [ "$n" -eq "$3" ] || fail "$last: $n lines with '$1' in $(basename "$2"), expected $3"
}

# tga FILE W H B G R: an uncompressed 32-bit TGA, top row first. Colour
# (B, G, R) on even pixels, black on odd ones, so that resampling shows.
tga() {
  {
    printf '\000\000\002\000\000\000\000\000\000\000\000\000'
    printf "\\$(printf %03o $(($2 % 256)))\\$(printf %03o $(($2 / 256)))"
    printf "\\$(printf %03o $(($3 % 256)))\\$(printf %03o $(($3 / 256)))\\040\\050"
    i=0
    while [ "$i" -lt $(($2 * $3)) ]; do
      if [ $((i % 2)) -eq 0 ]; then printf "\\$(printf %03o "$4")\\$(printf %03o "$5")\\$(printf %03o "$6")\\377"
      else printf '\000\000\000\377'; fi
      i=$((i + 1))
    done
  } >"$1"
}

# info_field FILE FIELD: a line of lmimage info, e.g. "size".
info_field() {
  "$tool" info "$1" 2>/dev/null | sed -n "s/^$2: *//p"
}

# last_pixel FILE: the bytes of an uncompressed 32-bit file's last pixel.
last_pixel() {
  tail -c 4 "$1" | od -An -tu1 | tr -s ' ' | sed 's/^ //; s/ $//'
}

# ---- sRGB mips: a black and white checkerboard averages to 188 in light ----
printf '\000\000\002\000\000\000\000\000\000\000\000\000\002\000\002\000\040\050' >"$tmp/cb.tga"
printf '\000\000\000\377\377\377\377\377\377\377\377\377\000\000\000\377' >>"$tmp/cb.tga"
run convert "$tmp/cb.tga" "$tmp/cb.png"; expect_status 0
for case in "--assume-srgb:188 188 188 255" "--assume-srgb --mips-in-gamma-space:128 128 128 255" \
            "--mips-in-gamma-space:128 128 128 255"; do
  options=${case%%:*}
  # shellcheck disable=SC2086
  run convert "$tmp/cb.png" "$tmp/cb.dds" --mips $options; expect_status 0
  [ "$(last_pixel "$tmp/cb.dds")" = "${case#*:}" ] ||
    fail "$last: 1x1 level is '$(last_pixel "$tmp/cb.dds")', expected '${case#*:}'"
done
[ "$(info_field "$tmp/cb.dds" format)" = "A8R8G8B8" ] || fail "a plain PNG was labelled sRGB"
run convert "$tmp/cb.png" "$tmp/cb.dds" --mips --assume-srgb
[ "$(info_field "$tmp/cb.dds" format)" = "s_A8R8G8B8" ] || fail "--assume-srgb did not label the pixels sRGB"
# The top level is carried through linear light unchanged.
run convert "$tmp/cb.png" "$tmp/top.dds" --assume-srgb; expect_status 0
cmp -s "$tmp/top.dds" "$tmp/cb.dds" && fail "mips made no difference"
[ "$(head -c 164 "$tmp/cb.dds" | tail -c 16 | od -An -tu1)" = "$(head -c 164 "$tmp/top.dds" | tail -c 16 | od -An -tu1)" ] ||
  fail "linear-light mips changed the top level"

# ---- Pipeline steps, checked with info ----
tga "$tmp/p8x2.tga" 8 2 0 0 255
tga "$tmp/p5x3.tga" 5 3 0 255 0
while IFS=: read -r input options size levels; do
  # shellcheck disable=SC2086
  run convert "$tmp/$input" "$tmp/r.dds" $options; expect_status 0
  [ "$(info_field "$tmp/r.dds" size)" = "$size" ] || fail "$last: size $(info_field "$tmp/r.dds" size), expected $size"
  [ "$(info_field "$tmp/r.dds" levels)" = "$levels" ] || fail "$last: $(info_field "$tmp/r.dds" levels) levels, expected $levels"
done <<EOF
p8x2.tga:--resize 3x5:3x5:1
p8x2.tga:--max-size 4:4x1:1
p8x2.tga:--max-size 16:8x2:1
p5x3.tga:--max-size 3:3x2:1
p5x3.tga:--pow2:8x4:1
p5x3.tga:--resize 16x4 --max-size 8 --pow2 --mips:8x2:4
p8x2.tga:--mips --filter point --flip-vertical:8x2:4
EOF
# A file's mip chain is remade at the new size, not dropped.
run convert "$tmp/p8x2.tga" "$tmp/chain.dds" --mips; expect_status 0
run convert "$tmp/chain.dds" "$tmp/r.dds" --max-size 4; expect_status 0
[ "$(info_field "$tmp/r.dds" levels)" = "3" ] || fail "$last: chain not remade after resizing"

# ---- Writer flags reach the writers ----
tga "$tmp/flat.tga" 64 64 0 0 0
run convert "$tmp/flat.tga" "$tmp/plain.tga"; expect_status 0
run convert "$tmp/flat.tga" "$tmp/rle.tga" --tga-rle; expect_status 0
[ "$(wc -c <"$tmp/rle.tga")" -lt "$(wc -c <"$tmp/plain.tga")" ] || fail "--tga-rle did not shrink a flat TGA"
run convert "$tmp/flat.tga" "$tmp/z0.png" --png-level 0; expect_status 0
run convert "$tmp/flat.tga" "$tmp/z9.png" --png-level 9; expect_status 0
[ "$(wc -c <"$tmp/z9.png")" -lt "$(wc -c <"$tmp/z0.png")" ] || fail "--png-level 0 and 9 gave no difference in size"
run convert "$tmp/flat.tga" "$tmp/i.png" --png-level 9 --png-interlaced; expect_status 0
cmp -s "$tmp/i.png" "$tmp/z9.png" && fail "--png-interlaced wrote the same file"
run convert "$tmp/flat.tga" "$tmp/flat.hdr" --format B32fG32fR32f; expect_status 0
run convert "$tmp/flat.tga" "$tmp/rle.hdr" --format B32fG32fR32f --hdr-rle; expect_status 0
[ "$(wc -c <"$tmp/rle.hdr")" -lt "$(wc -c <"$tmp/flat.hdr")" ] || fail "--hdr-rle did not shrink a flat HDR"
tga "$tmp/photo.tga" 64 64 40 120 200
run convert "$tmp/photo.tga" "$tmp/q1.jpg" --jpeg-quality superb; expect_status 0
run convert "$tmp/photo.tga" "$tmp/q5.jpg" --jpeg-quality bad; expect_status 0
[ "$(wc -c <"$tmp/q5.jpg")" -lt "$(wc -c <"$tmp/q1.jpg")" ] || fail "--jpeg-quality bad is not smaller than superb"

# ---- Usage errors: exit 2, one line, before any file is written ----
mkdir -p "$tmp/u/src" && cp "$tmp/p8x2.tga" "$tmp/u/src/a.tga" && cp "$tmp/cb.png" "$tmp/u/src/a.png"
cp "$tmp/u/src/a.png" "$tmp/u/a.copy"
while IFS='|' read -r args message; do
  # shellcheck disable=SC2086
  run convert $args
  expect_status 2
  [ "$(wc -l <"$tmp/err")" -eq 1 ] || fail "$last: stderr is not one line"
  grep -Fq -- "$message" "$tmp/err" || fail "$last: stderr '$(cat "$tmp/err")' lacks '$message'"
  [ -e "$tmp/u/out" ] && fail "$last: wrote $(find "$tmp/u/out" | head -3)" && rm -rf "$tmp/u/out"
done <<EOF
$tmp/u/src/a.tga $tmp/u/src/a.png $tmp/cb.png|'--to': is needed
--to xyz --output-dir $tmp/u/out $tmp/u/src/a.tga|no image format for extension '.xyz'
--to dds --output-dir $tmp/u/out $tmp/u/src|is a folder (add --recursive
--to dds --jobs 0 --output-dir $tmp/u/out $tmp/u/src/a.tga|--jobs needs a whole number
--to dds -j 0 -o $tmp/u/out $tmp/u/src/a.tga|--jobs needs a whole number
--to dds -rf -o $tmp/u/out $tmp/u/src|'-rf': unknown option
--to dds --png-level 3 --output-dir $tmp/u/out $tmp/u/src/a.tga|'--png-level': only applies to PNG output
--to png --png-level 10 --output-dir $tmp/u/out $tmp/u/src/a.tga|--png-level needs a whole number from 0 to 9
--to dds --resize 10 --output-dir $tmp/u/out $tmp/u/src/a.tga|--resize needs WIDTHxHEIGHT
--to dds --max-size 0 --output-dir $tmp/u/out $tmp/u/src/a.tga|--max-size needs a whole number
--to jpg --jpeg-quality great --output-dir $tmp/u/out $tmp/u/src/a.tga|unknown JPEG quality
--to dds --quiet --verbose --output-dir $tmp/u/out $tmp/u/src/a.tga|cannot be combined
--to dds --file-list $tmp/u/none.txt --output-dir $tmp/u/out|cannot read the file list
--to png --recursive $tmp/u/src|is an input file
--to dds --recursive --output-dir $tmp/u/out $tmp/u/src|is the output of both
$tmp/u/src/a.tga $tmp/u/src/a.tga.dds --mips --filter sinc|unknown filter
$tmp/u/src/a.tga $tmp/u/src/a.tga.dds --jobs x|--jobs needs a whole number
EOF
cmp -s "$tmp/u/src/a.png" "$tmp/u/a.copy" || fail "a refused batch changed an input"

# ---- A tree: relative paths kept, up-to-date outputs skipped, --force ----
mkdir -p "$tmp/t/src/a" "$tmp/t/src/b/c"
cp "$tmp/p8x2.tga" "$tmp/t/src/a/x.tga"
cp "$tmp/cb.png" "$tmp/t/src/b/c/y.png"
echo "not an image" >"$tmp/t/src/b/notes.txt"
run convert -r "$tmp/t/src" -o "$tmp/t/out" --to dds --mips -j2; expect_status 0
for f in a/x.dds b/c/y.dds; do [ -f "$tmp/t/out/$f" ] || fail "$last: no $f"; done
[ "$(find "$tmp/t/out" -type f | wc -l)" -eq 2 ] || fail "$last: other files written: $(find "$tmp/t/out" -type f)"
expect_count "converted $tmp/t/src/" "$tmp/out" 2
expect_line "converted $tmp/t/src/a/x.tga -> $tmp/t/out/a/x.dds, $(wc -c <"$tmp/t/out/a/x.dds") bytes, $(sed -n 's/.*a\/x.dds, [0-9]* bytes, //p' "$tmp/out")"
grep -q "^converted 2, skipped 0, failed 0; read [0-9]* bytes, wrote [0-9]* bytes; [0-9.]* s$" "$tmp/out" ||
  fail "$last: no summary line"
touch "$tmp/t/mark"
run convert --recursive "$tmp/t/src" --output-dir "$tmp/t/out" --to dds --mips; expect_status 0
expect_count "skipped $tmp/" "$tmp/out" 2
[ -n "$(find "$tmp/t/out" -type f -newer "$tmp/t/mark")" ] && fail "$last: rewrote up-to-date outputs"
sleep 1; touch "$tmp/t/src/a/x.tga"
run convert --recursive "$tmp/t/src" --output-dir "$tmp/t/out" --to dds --mips --verbose; expect_status 0
expect_line "skipped $tmp/t/src/b/c/y.png -> $tmp/t/out/b/c/y.dds, up to date"
expect_count "converted $tmp/t/src/a/x.tga" "$tmp/out" 1
run convert --recursive "$tmp/t/src" --output-dir "$tmp/t/out" --to dds --mips --force --quiet; expect_status 0
[ -s "$tmp/out" ] && fail "$last: --quiet printed '$(head -1 "$tmp/out")'"
[ "$(find "$tmp/t/out" -type f -newer "$tmp/t/mark" | wc -l)" -eq 2 ] || fail "$last: --force did not rewrite both"
# Outputs beside the inputs, without a folder.
run convert --to ktx "$tmp/t/src/a/x.tga" "$tmp/t/src/b/c/y.png"; expect_status 0
[ -f "$tmp/t/src/a/x.ktx" ] && [ -f "$tmp/t/src/b/c/y.ktx" ] || fail "$last: outputs not beside the inputs"

# ---- A file list: relative paths kept below the output folder ----
(cd "$tmp/t" && printf 'src/a/x.tga\r\n\nsrc/b/c/y.png\n' >list.txt &&
  "$tool" convert --file-list list.txt --output-dir out2 --to png >"$tmp/out" 2>"$tmp/err"); status=$?
last="convert --file-list"; expect_status 0
for f in src/a/x.png src/b/c/y.png; do [ -f "$tmp/t/out2/$f" ] || fail "$last: no $f"; done

# ---- A failure in the middle of a batch: the others are still converted ----
mkdir -p "$tmp/f"
cp "$tmp/p8x2.tga" "$tmp/f/1.tga"; cp "$tmp/p5x3.tga" "$tmp/f/3.tga"
"$tool" convert "$tmp/p8x2.tga" "$tmp/f/good.png" >/dev/null && head -c 60 "$tmp/f/good.png" >"$tmp/f/2.png"
run convert --jobs 1 --to dds --output-dir "$tmp/f/out" "$tmp/f/1.tga" "$tmp/f/2.png" "$tmp/f/3.tga"; expect_status 1
[ -f "$tmp/f/out/1.dds" ] && [ -f "$tmp/f/out/3.dds" ] || fail "$last: good files not converted"
[ -e "$tmp/f/out/2.dds" ] && fail "$last: wrote the corrupt file's output"
[ "$(wc -l <"$tmp/err")" -eq 1 ] && grep -q "^lmimage: convert: '$tmp/f/2.png': cannot decode as PNG" "$tmp/err" ||
  fail "$last: stderr '$(cat "$tmp/err")' does not name the corrupt file"
expect_line "failed $tmp/f/2.png, $(sed -n 's/^failed .*2\.png, //p' "$tmp/out")"
grep -q "^converted 2, skipped 0, failed 1;" "$tmp/out" || fail "$last: wrong summary"
run convert --quiet --to dds --output-dir "$tmp/f/out" --force "$tmp/f/1.tga" "$tmp/f/2.png"; expect_status 1
[ -s "$tmp/out" ] && fail "$last: --quiet printed on stdout"
[ -s "$tmp/err" ] || fail "$last: --quiet hid the error"

# ---- The single-file form takes every option (build edges pass --force) ----
run convert --force "$tmp/p8x2.tga" "$tmp/one.dds" --assume-srgb --max-size 4 --pow2 --mips --filter box --jobs 1 --quiet
expect_status 0
[ ! -s "$tmp/out" ] || fail "$last: --quiet printed"
run convert --force "$tmp/p8x2.tga" "$tmp/one.dds" --mips
expect_line "wrote $tmp/one.dds: DDS, A8R8G8B8, 8x2, 4 levels, $(wc -c <"$tmp/one.dds") bytes"

# ---- The corpus as one tree, in parallel ----
if [ -n "$corpus" ] && [ -f "$corpus/MANIFEST.tsv" ]; then
  run convert --recursive "$corpus" --output-dir "$tmp/c" --to dds --mips --jobs 2
  expect_status 1  # the corpus holds broken files on purpose
  failed=$(sed -n 's/^converted [0-9]*, skipped 0, failed \([0-9]*\);.*/\1/p' "$tmp/out")
  [ "$(grep -c "^lmimage: convert: '.*': [^w]" "$tmp/err")" = "$failed" ] || fail "$last: $failed failed, error lines differ"
  [ -z "$(find "$tmp/c" -name '*.tmp-*')" ] || fail "$last: temporary files left"
  # Every broken file is named and has no output; every other file has one or is named.
  awk -F'\t' 'NR > 1 { print $14, $1 }' "$corpus/MANIFEST.tsv" | while read -r expect f; do
    named=no; grep -Fq -e "'$corpus/$f'" -e "'$tmp/c/${f%.*}.dds'" "$tmp/err" && named=yes
    grep -Fq "'$corpus/$f': warning: " "$tmp/err" && named=warned
    written=no; [ -f "$tmp/c/${f%.*}.dds" ] && written=yes
    case $expect:$named:$written in
      reject:yes:no | load:no:yes | load:yes:no | load:warned:yes) ;;
      *) echo "$f ($expect, named $named, written $written)" ;;
    esac
  done >"$tmp/missed"
  [ -s "$tmp/missed" ] && fail "$last: $(head -3 "$tmp/missed")"
  converted=$(sed -n 's/^converted \([0-9]*\),.*/\1/p' "$tmp/out")
  [ "${converted:-0}" -ge 100 ] || fail "$last: only ${converted:-0} files converted"
  # Threads change nothing in the files written.
  run convert --recursive "$corpus" --output-dir "$tmp/c1" --to dds --mips --assume-srgb --jobs 1 --quiet
  run convert --recursive "$corpus" --output-dir "$tmp/c2" --to dds --mips --assume-srgb --jobs 2 --quiet
  (cd "$tmp/c1" && find . -type f | sort) >"$tmp/c1.list"
  (cd "$tmp/c2" && find . -type f | sort) >"$tmp/c2.list"
  cmp -s "$tmp/c1.list" "$tmp/c2.list" || fail "$last: --jobs 1 and 2 wrote different files"
  while read -r f; do cmp -s "$tmp/c1/$f" "$tmp/c2/$f" || echo "$f"; done <"$tmp/c1.list" >"$tmp/differ"
  [ -s "$tmp/differ" ] && fail "$last: --jobs 1 and 2 differ in $(head -3 "$tmp/differ")"
else
  echo "batch_test: no corpus folder given; skipping the checks on real files"
fi

finish "batch"
