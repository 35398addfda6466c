#!/usr/bin/env bash
# Installs every Debian package the project needs, skipping those already present.
# Uses sudo when not run as root. Safe to run again.
set -euo pipefail

packages=(
  # toolchain
  build-essential cmake ninja-build pkg-config git clang libclang-rt-14-dev
  # Qt 6
  qt6-base-dev qt6-base-dev-tools qt6-tools-dev qt6-tools-dev-tools qt6-svg-dev
  qt6-image-formats-plugins qt6-qpa-plugins libgl-dev libglx-dev libvulkan-dev
  # photo libraries
  libexiv2-dev exiv2 libraw-dev libheif-dev libheif1 libde265-0 libturbojpeg0-dev libjpeg62-turbo-dev
  # media repair: libavcodec confirms sound frame boundaries; ffmpeg makes the test clips
  libavcodec-dev libavutil-dev ffmpeg
  # vision
  libdlib-dev libdlib-data libopencv-core-dev libopencv-imgproc-dev libopencv-objdetect-dev opencv-data
  # hashing, keys
  libssl-dev libxxhash-dev qtkeychain-qt6-dev gnome-keyring dbus dbus-x11 libsecret-tools
  # tests, benchmarks, headless windows, plug-in tests, peer tools for benchmarks (exiftool, xxhsum, vipsthumbnail)
  googletest libgtest-dev libgmock-dev libbenchmark-dev xvfb xauth lua5.4 liblua5.4-dev
  libimage-exiftool-perl xxhash libvips-tools python3
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed$'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages present"
  exit 0
fi

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi

echo "setup: installing ${#missing[@]} packages: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
echo "setup: done"
