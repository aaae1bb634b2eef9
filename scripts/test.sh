#!/usr/bin/env bash
# Builds the library and runs the whole test suite twice: a Release build, then
# a build with AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
lmimage_install_deps

jobs=$(nproc 2>/dev/null || echo 2)

cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release
cmake --build build/release -j"$jobs"
ctest --test-dir build/release --output-on-failure -j"$jobs"

# The packaging test links an uninstrumented consumer, so it runs in the first pass only.
cmake -S . -B build/sanitize -DCMAKE_BUILD_TYPE=Debug -DLMIMAGE_SANITIZE=address,undefined \
  -DLMIMAGE_BUILD_BENCH=OFF
cmake --build build/sanitize -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build/sanitize --output-on-failure -j"$jobs" -LE packaging
