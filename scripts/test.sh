#!/usr/bin/env bash
# Sets up the machine, builds everything and runs every test: the Release build's tests,
# then the unit tests again built with AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
jobs=$(nproc)

echo "== Include directions"
python3 scripts/check-includes.py

echo "== Release build and tests"
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j"$jobs"
ctest --test-dir build/release --output-on-failure -j"$jobs"

echo "== Sanitizer build (ASan + UBSan) and tests"
cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DSORVI_SANITIZE=ON -DSORVI_BUILD_BENCH=OFF >/dev/null
cmake --build build/asan -j"$jobs"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir build/asan --output-on-failure -j"$jobs"

echo "== Fuzzing the RAW preview scan and extraction, the clip box reader and the JPEG header rebuild (60 s each)"
bash scripts/fuzz.sh 60
