#!/usr/bin/env bash
# The main job on its embedded default: builds velloro and runs it end to end.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release

work=$(mktemp -d "${PWD}/build/demo.XXXXXX")
trap 'rm -rf "$work"' EXIT
./build/bin/velloro disk-check "$work"
# Two seconds of 1080i colour bars with a stereo tone, written through the
# plug-in's writer, then read back through its reader.
./build/bin/velloro render "$work/bars.avi"
./build/bin/velloro probe "$work/bars.avi"
