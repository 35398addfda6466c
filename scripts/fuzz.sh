#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer, UndefinedBehaviorSanitizer)
# and runs each for SECONDS seconds (default 60), starting from seeds cut from the real
# camera files of the corpus when it is there. A crash, leak or undefined behaviour fails.
#   scripts/fuzz.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
build=build/fuzz
corpus=${SORVI_CORPUS_DIR:-$PWD/../shared/corpus}

if ! command -v clang++ >/dev/null; then
  echo "fuzz: clang++ not found; skipping the fuzzers"
  exit 0
fi

CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DSORVI_FUZZ=ON -DSORVI_BUILD_TESTS=OFF -DSORVI_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" --target fuzz_candidates fuzz_extract fuzz_boxes fuzz_jpeg_header

# Seeds: the first 64 KiB of each RAW file (their headers, thumbnails and the start of a
# preview). Made fresh each run, never kept in the repository.
seeds="$build/seeds"
rm -rf "$seeds" && mkdir -p "$seeds"
if [ -d "$corpus" ]; then
  find "$corpus/raw" "$corpus/pairs" -type f ! -name '*.json' ! -name '*.xmp' | while read -r f; do
    head -c 65536 "$f" > "$seeds/$(basename "$f").seed"
  done
fi
# Seeds for the clip readers: a tiny MP4 and MOV with picture, sound and timecode.
if command -v ffmpeg >/dev/null; then
  for ext in mp4 mov; do
    ffmpeg -nostdin -v error -y -f lavfi -i testsrc=size=32x32:rate=10 -f lavfi -i sine=sample_rate=8000 \
      -t 0.3 -c:v libx264 -preset ultrafast -c:a aac -timecode 01:00:00:00 "$seeds/clip.$ext" || true
  done
  # A small photo with its reference, as the header rebuild fuzzer reads them: one input.
  ffmpeg -nostdin -v error -y -f lavfi -i testsrc=size=64x48 -frames:v 1 -huffman default "$build/photo.jpg" &&
    { printf '\200'; cat "$build/photo.jpg" "$build/photo.jpg"; } > "$seeds/photo-pair.seed" || true
fi

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
for target in fuzz_candidates fuzz_extract fuzz_boxes fuzz_jpeg_header; do
  work="$build/work-$target"
  rm -rf "$work" && mkdir -p "$work"
  echo "== $target for ${seconds}s"
  status=0
  "$build/fuzz/$target" "$work" "$seeds" -max_total_time="$seconds" -max_len=65536 \
    -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$build/$target-" \
    > "$build/$target.log" 2>&1 || status=$?
  if [ "$status" -ne 0 ]; then
    tail -n 60 "$build/$target.log"
    echo "fuzz: $target failed (exit $status); the input is saved as $build/$target-*"
    exit 1
  fi
  grep -E "^(Done|stat::number_of_executed_units|stat::peak_rss_mb)" "$build/$target.log"
done
