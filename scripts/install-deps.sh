#!/usr/bin/env bash
# Installs what the build, the tests and the test-file scripts need, from
# Debian's packages; does nothing when all of it is already there.
set -euo pipefail

packages=(
    build-essential   # g++ and make
    cmake ninja-build pkg-config
    uuid-dev          # UuidCreate
    libmd-dev         # MD5 of frames and audio (framemd5)
    libcli11-dev      # velloro's command line
    libpng-dev        # velloro thumbnails
    nlohmann-json3-dev  # velloro probe --json
    libavcodec-dev libavutil-dev libswscale-dev  # the stand-in's encoders and decoders (DV, MPEG-2, MJPEG)
    dpkg-dev file     # cpack's Debian package: the dependency list from what it links
    libgtest-dev libgmock-dev
    libbenchmark-dev
    ffmpeg            # makes test files and checks ours (ffprobe, framemd5)
    gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good  # corpus files as GStreamer's avimux writes them
    gstreamer1.0-plugins-base-apps gstreamer1.0-libav  # gst-discoverer and its DV and MPEG-2 decoders check what we write
    mediainfo         # checks the scan, field order and timecode of what we write
    python3 time      # scripts/bench.sh: its report and peak memory
    fio               # scripts/bench.sh: the disk's own read and write limit, several requests in flight
    clang libclang-rt-14-dev  # libFuzzer targets
)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "installing: ${missing[*]}"
    sudo_cmd=()
    [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
    "${sudo_cmd[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
