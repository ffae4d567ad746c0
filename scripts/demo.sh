#!/usr/bin/env bash
# The main job on its embedded default: builds velloro and the plug-in (no
# tests), renders a clip through the plug-in and reads it back. What it made
# stays in build/demo/: the clip, its probe and its contact sheet.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target velloro velloro_avi

demo=build/demo
mkdir -p "$demo"
./build/bin/velloro disk-check "$demo"
# Two seconds of 1080i colour bars with a stereo tone, written through the
# plug-in's writer, then read back through its reader.
./build/bin/velloro render "$demo/bars.avi" -y
./build/bin/velloro probe "$demo/bars.avi" | tee "$demo/bars.probe.txt"
./build/bin/velloro thumbnails "$demo/bars.avi" "$demo/bars.png" --count 8
echo "made in $demo/: bars.avi, bars.probe.txt, bars.png"
