#!/bin/sh
# Test of 'lmimage info --json' (valid JSON Lines for any file name and every
# corpus file, fields as the manifest says) and 'lmimage ninja' (the build file
# Ninja runs: incremental, deterministic, same bytes as a direct convert).
# Usage: json_ninja_test.sh PATH/TO/lmimage [CORPUS_DIR]
set -u

tool=${1:?usage: json_ninja_test.sh PATH/TO/lmimage [CORPUS_DIR]}
corpus=${2:-}
case $tool in /*) ;; *) tool=$PWD/$tool ;; esac
. "$(dirname "$0")/test_lib.sh"

have_python=0
if command -v python3 >/dev/null 2>&1; then have_python=1; else echo "SKIP: python3 absent, JSON not parsed"; fi

# check_json [MANIFEST FILE...]: parses every stdout line as strict UTF-8 JSON
# and finds one stderr line per "error" object; with a manifest, line i must
# describe FILE i as its row says.
check_json() {
  [ "$have_python" -eq 1 ] || return 0
  python3 - "$tmp/out" "$tmp/err" "$@" <<'EOF' || fail "$last: JSON check"
import json, sys
lines = open(sys.argv[1], 'rb').read().split(b'\n')
assert lines.pop() == b'', 'output does not end with a line break'
objects = [json.loads(line.decode('utf-8')) for line in lines]
errors = len(open(sys.argv[2], 'rb').read().splitlines())
failed = sum('error' in o for o in objects)
assert errors == failed, '%d stderr lines for %d error objects' % (errors, failed)
# Rows where the library knowingly differs from the manifest (as its corpus
# test records): formats the files really hold, or may be read as, and
# loading rows that the readers' rules refuse.
also_format = {'png/netpbm_rgb16.png': 'R8G8B8', 'png/netpbm_gray16_interlaced.png': 'A8',
               'bmp/pillow_rgb32bf.bmp': 'A8R8G8B8', 'bmp/pillow_rgb32h52.bmp': 'A8R8G8B8'}
refused = {'hdr/im_flat_5x3.hdr', 'hdr/im_rle.hdr', 'gif/pillow_hopper_zero_comment_subblocks.gif'}
containers = {'JPEG': {'JPEG', 'JPG'}, 'PKM': {'PKM', 'PKMA'}}
if len(sys.argv) > 3:
    rows = {}
    with open(sys.argv[3], encoding='utf-8') as manifest:
        head = manifest.readline().rstrip('\n').split('\t')
        for line in manifest:
            row = dict(zip(head, line.rstrip('\n').split('\t')))
            rows[row['file']] = row
    files = sys.argv[4:]
    assert len(objects) == len(files), '%d objects for %d files' % (len(objects), len(files))
    bad = []
    for path, obj in zip(files, objects):
        row = rows[path]
        if obj['file'] != path:
            bad.append('%s: file %r' % (path, obj['file']))
        elif row['expect'] == 'reject' or path in refused:
            if 'error' not in obj: bad.append(path + ': no error for a refused file')
        elif 'error' in obj:
            bad.append('%s: %s' % (path, obj['error']))
        else:
            got = (obj['format'], str(obj['width']), str(obj['height']), str(len(obj['levels'])))
            want = (row['format'], row['width'], row['height'], row['levels'])
            if got != want and got != (also_format.get(path),) + want[1:]:
                bad.append('%s: %s, manifest %s' % (path, got, want))
            if obj['container'] not in containers.get(row['container'], {row['container']}):
                bad.append('%s: container %s' % (path, obj['container']))
            for key in ('type', 'descriptor', 'api', 'depth', 'layers', 'faces', 'origin', 'alpha', 'ktx', 'pvr'):
                if key not in obj: bad.append('%s: no %s' % (path, key))
            if any(level is None or level['bytes'] <= 0 for level in obj['levels']):
                bad.append(path + ': empty level')
    assert not bad, '\n'.join(bad[:10])
EOF
}

# A 1 x 1 uncompressed TGA, so that the file-name checks need no corpus.
printf '\0\0\2\0\0\0\0\0\0\0\0\0\1\0\1\0\30\0\1\2\3' >"$tmp/pixel.tga"

# ---- info --json: names with every kind of awkward byte stay valid JSON ----
mkdir "$tmp/names"
for name in 'quote".tga' 'back\slash.tga' "$(printf 'tab\tnew\nline.tga')" "$(printf 'ctl\001\177.tga')" \
  "$(printf 'latin\377\303.tga')" "$(printf 'utf8-\303\251.tga')"; do
  cp "$tmp/pixel.tga" "$tmp/names/$name"
done
run info --json "$tmp/names"/* "$tmp/names/missing.tga"
expect_status 1
expect_err_lines 1
[ "$(wc -l <"$tmp/out")" -eq 7 ] || fail "$last: $(wc -l <"$tmp/out") stdout lines, expected 7"
check_json
if [ "$have_python" -eq 1 ]; then
  python3 - "$tmp/out" <<'EOF' || fail "$last: file names and fields"
import json, sys
objs = [json.loads(l) for l in open(sys.argv[1], 'rb').read().decode('utf-8').splitlines()]
names = sorted(o['file'].rsplit('/', 1)[1] for o in objs if 'error' not in o)
want = sorted(['quote".tga', 'back\\slash.tga', 'tab\tnew\nline.tga', 'ctl\x01\x7f.tga',
               'latin\ufffd\ufffd.tga', 'utf8-\u00e9.tga'])
assert names == want, names
good = [o for o in objs if 'error' not in o][0]
assert (good['width'], good['height'], good['container'], len(good['levels'])) == (1, 1, 'TGA', 1), good
assert good['ktx'] is None and good['pvr'] is None and good['alpha'] is None
assert objs[-1]['file'].endswith('missing.tga') and objs[-1]['error'], objs[-1]
EOF
fi
run info --json;          expect_status 2
run info --json=1 x.tga;  expect_status 2

# ---- ninja: build files without running them ----
mkdir -p "$tmp/gen/src/deep/er" "$tmp/gen/clash"
cp "$tmp/pixel.tga" "$tmp/gen/src/b.tga"
cp "$tmp/pixel.tga" "$tmp/gen/src/deep/er/a.TGA"
: >"$tmp/gen/src/notes.txt"
cp "$tmp/pixel.tga" "$tmp/gen/clash/x.tga"
cp "$tmp/pixel.tga" "$tmp/gen/clash/x.png"
run ninja "$tmp/gen/src" "$tmp/gen/out" --to dds --output -
expect_status 0
[ ! -e "$tmp/gen/out" ] || fail "$last: wrote a folder with --output -"
grep '^build ' "$tmp/out" | sed 's/:.*//' >"$tmp/edges"
printf 'build %s\nbuild %s\n' "$tmp/gen/out/b.dds" "$tmp/gen/out/deep/er/a.dds" | cmp -s - "$tmp/edges" ||
  fail "$last: edges are not the two images in sorted order: $(cat "$tmp/edges")"
cp "$tmp/out" "$tmp/first.ninja"
run ninja "$tmp/gen/src" "$tmp/gen/out" --to .DDS
expect_status 0
[ -f "$tmp/gen/out/build.ninja" ] || fail "$last: no OUT_DIR/build.ninja"
# The output folder inside the source folder is not searched.
run ninja "$tmp/gen/src" "$tmp/gen/src/out" --to png --output "$tmp/inside.ninja"
expect_status 0
[ "$(grep -c '^build ' "$tmp/inside.ninja")" -eq 2 ] || fail "$last: edge count"
run ninja "$tmp/gen/src" "$tmp/gen/out" --to dds --output - --mips --filter lanczos3
grep -q -- "--mips --filter=lanczos3" "$tmp/out" || fail "$last: convert options not forwarded"
# Refused before anything is written: usage errors exit 2, tree problems 1.
for args in "--to dds --filter box" "--to dds --format Q8" "--to xyz" "" "--to dds --bogus" "--to dds --jobs 2"; do
  # shellcheck disable=SC2086
  run ninja "$tmp/gen/src" "$tmp/gen/bad" $args
  expect_status 2
  expect_err_lines 1
  [ ! -e "$tmp/gen/bad" ] || fail "$last: wrote output"
done
run ninja "$tmp/gen/clash" "$tmp/gen/bad" --to dds;     expect_status 1; expect_err_lines 1
run ninja "$tmp/gen/src" "$tmp/gen/src" --to tga;       expect_status 1; expect_err_lines 1
run ninja "$tmp/gen/missing" "$tmp/gen/bad" --to dds;   expect_status 1; expect_err_lines 1
[ ! -e "$tmp/gen/bad" ] || fail "ninja: wrote output for a refused tree"
cmp -s "$tmp/pixel.tga" "$tmp/gen/src/b.tga" || fail "ninja: an input changed"

# ---- info --json and ninja builds on real files ----
if [ -z "$corpus" ] || [ ! -f "$corpus/MANIFEST.tsv" ]; then
  echo "SKIP: no corpus folder given or no MANIFEST.tsv in it; real-file checks skipped"
else
  files=$(awk -F'\t' 'NR > 1 { print $1 }' "$corpus/MANIFEST.tsv")
  # shellcheck disable=SC2086
  (cd "$corpus" && "$tool" info --json $files >"$tmp/out" 2>"$tmp/err")
  status=$?
  last="lmimage info --json (every corpus file)"
  expect_status 1
  # shellcheck disable=SC2086
  check_json "$corpus/MANIFEST.tsv" $files

  if ! command -v ninja >/dev/null 2>&1; then
    echo "SKIP: ninja absent (Debian package ninja-build); ninja builds skipped"
  else
    # A small tree: two loadable PNG, DDS and KTX files each that convert to
    # DDS with mips; one gets a name Ninja and the shell must escape.
    mkdir -p "$tmp/tree/src" "$tmp/direct"
    for container in PNG DDS KTX; do
      kept=0
      for file in $(awk -F'\t' -v c="$container" 'NR > 1 && $3 == c && $14 == "load" { print $1 }' "$corpus/MANIFEST.tsv"); do
        [ "$kept" -lt 2 ] || break
        base=$(basename "$file")
        "$tool" convert "$corpus/$file" "$tmp/direct/probe.dds" --mips >/dev/null 2>&1 || continue
        kept=$((kept + 1))
        [ "$kept" -eq 2 ] && [ "$container" = PNG ] && base="odd name \$x:'y.png"
        mkdir -p "$tmp/tree/src/$container"
        cp "$corpus/$file" "$tmp/tree/src/$container/$base"
      done
    done
    (cd "$tmp/tree/src" && find . -type f | sort) >"$tmp/inputs"
    [ "$(wc -l <"$tmp/inputs")" -ge 5 ] || fail "ninja: only $(wc -l <"$tmp/inputs") convertible corpus files found"

    for build in 1 2; do
      run ninja "$tmp/tree/src" "$tmp/tree/out$build" --to dds --mips
      expect_status 0
      ninja -C "$tmp/tree/out$build" >"$tmp/ninja.log" 2>&1 || fail "ninja build $build: $(tail -3 "$tmp/ninja.log")"
    done
    while read -r input; do
      output=${input%.*}.dds
      "$tool" convert "$tmp/tree/src/$input" "$tmp/direct/one.dds" --mips >/dev/null 2>&1
      cmp -s "$tmp/direct/one.dds" "$tmp/tree/out1/$output" || fail "ninja: $output differs from a direct convert"
      cmp -s "$tmp/tree/out1/$output" "$tmp/tree/out2/$output" || fail "ninja: $output differs between two builds"
    done <"$tmp/inputs"
    sed "s|$tmp/tree/out2|$tmp/tree/out1|g" "$tmp/tree/out2/build.ninja" | cmp -s - "$tmp/tree/out1/build.ninja" ||
      fail "ninja: build files of the same tree differ"

    ninja -C "$tmp/tree/out1" >"$tmp/ninja.log" 2>&1
    grep -q "no work to do" "$tmp/ninja.log" || fail "ninja: second run did work: $(cat "$tmp/ninja.log")"
    sleep 1
    touch "$tmp/tree/src/PNG/odd name \$x:'y.png"
    ninja -C "$tmp/tree/out1" >"$tmp/ninja.log" 2>&1 || fail "ninja: rebuild failed"
    [ "$(grep -c '^\[' "$tmp/ninja.log")" -eq 1 ] && grep -q "^\[1/1\] .*odd name" "$tmp/ninja.log" ||
      fail "ninja: touching one input did not reconvert just that one: $(cat "$tmp/ninja.log")"
  fi
fi

finish "JSON and ninja"
