#!/usr/bin/env bash
# Sets up the machine, builds, and shows a shoot: the folder given, or a generated demo
# shoot when none is given.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j"$(nproc)" --target sorvi kestrane-sorvi

folder=${1:-}
if [ -z "$folder" ]; then
  folder=build/demo-shoot
  if [ ! -d "$folder/DCIM" ]; then
    build/release/sorvi/sorvi demo "$folder"
  fi
fi
# Without a display the shoot is shown as the command-line summary instead of the window.
if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
  exec build/release/KestraneSorvi/kestrane-sorvi "$folder"
fi
build/release/sorvi/sorvi scan "$folder"
