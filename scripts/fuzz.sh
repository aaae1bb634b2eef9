#!/usr/bin/env bash
# Builds the libFuzzer target with ASan and UBSan (Clang 15, build/fuzz), writes
# seeds with the library's own writers, adds the shared corpus, and fuzzes for a
# bounded time. Fails on any crash, leak, timeout or sanitizer report; the
# offending input is left in build/fuzz/artifacts (keep it in tests/crashers).
# Then the block decoders alone (lmimage_fuzz_blocks) for a quarter of the time.
#
#   scripts/fuzz.sh                    60 seconds
#   scripts/fuzz.sh 1800               30 minutes
#   scripts/fuzz.sh 0 -runs=10000000   no time limit, ten million inputs
#
# Arguments after the seconds go to libFuzzer and override the defaults below.
# The corpus grows in build/fuzz/corpus across runs; delete it to start over.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
lmimage_install_deps

lmimage_install_packages clang-15 libfuzzer-15-dev

seconds=60
if [ $# -gt 0 ] && [[ $1 =~ ^[0-9]+$ ]]; then
  seconds=$1
  shift
fi

build=build/fuzz
corpus_option=()
[ -n "${LMIMAGE_CORPUS_DIR:-}" ] && corpus_option=(-DLMIMAGE_CORPUS_DIR="$LMIMAGE_CORPUS_DIR")
# Optimised like a release build but with assertions, so faults they catch count.
cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=clang++-15 -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g" -DLMIMAGE_BUILD_FUZZERS=ON -DLMIMAGE_SANITIZE=address,undefined \
  -DLMIMAGE_BUILD_TESTS=OFF -DLMIMAGE_BUILD_BENCH=OFF -DLMIMAGE_BUILD_TOOLS=OFF -DLMIMAGE_INSTALL=OFF \
  "${corpus_option[@]}" >/dev/null
cmake --build "$build" -j"$(nproc 2>/dev/null || echo 2)" --target lmimage_fuzz lmimage_make_seeds lmimage_fuzz_blocks

export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

# The scratch corpus starts from fresh seeds and the shared files; the shared
# folder and the repository are only read.
rm -rf "$build/seeds"
echo "seeds written: $("$build/fuzz/lmimage_make_seeds" "$build/seeds")"
mkdir -p "$build/corpus" "$build/artifacts"
cp "$build/seeds"/* "$build/corpus/"
shared=$(sed -n 's/^LMIMAGE_CORPUS_DIR:[A-Z]*=//p' "$build/CMakeCache.txt")
if [ -d "$shared" ]; then
  # Image files only: ref/ holds decoded pixels to compare against.
  find "$shared" -mindepth 2 -type f ! -path "$shared/ref/*" -size -256k -print0 |
    while IFS= read -r -d '' file; do
      relative=${file#"$shared"/}
      cp "$file" "$build/corpus/shared-${relative//\//-}"
    done
  chmod -R u+w "$build/corpus"
else
  echo "no shared corpus at $shared; fuzzing from generated seeds only"
fi

log=$build/fuzz.log
echo "fuzzing for ${seconds}s${*:+ with $*} (log: $log)"
status=0
"$build/fuzz/lmimage_fuzz" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
  -dict=fuzz/lmimage.dict -artifact_prefix="$build/artifacts/" "$@" "$build/corpus" >"$log" 2>&1 || status=$?

grep -E '^#[0-9]+[[:space:]]+(INITED|DONE)' "$log" || true
runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
if [ "$status" -ne 0 ]; then
  tail -n 80 "$log"
  echo "fuzz: FAILED (exit $status); inputs in $build/artifacts:" >&2
  ls -1 "$build/artifacts" >&2
  exit 1
fi
echo "fuzz: ${runs:-?} executions, ${rate:-?} exec/s, no crash"

# The block decoders alone, on raw blocks (a quarter of the time, at least 10 s).
block_seconds=$(( seconds / 4 > 10 ? seconds / 4 : 10 ))
mkdir -p "$build/block-corpus"
status=0
"$build/fuzz/lmimage_fuzz_blocks" -max_total_time="$block_seconds" -timeout=10 -max_len=4096 -print_final_stats=1 \
  -artifact_prefix="$build/artifacts/" "$build/block-corpus" >"$build/fuzz-blocks.log" 2>&1 || status=$?
runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$build/fuzz-blocks.log")
if [ "$status" -ne 0 ]; then
  tail -n 80 "$build/fuzz-blocks.log"
  echo "fuzz (blocks): FAILED (exit $status); inputs in $build/artifacts:" >&2
  exit 1
fi
echo "fuzz (blocks): ${runs:-?} executions in ${block_seconds}s, no crash"
