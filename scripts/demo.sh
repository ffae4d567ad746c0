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
