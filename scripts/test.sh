#!/usr/bin/env bash
# Builds the release preset and runs every test. Under CI=true it also builds
# and runs the tests in the asan (ASan+UBSan) preset.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

run_preset() {
    local preset=$1
    cmake --preset "$preset"
    cmake --build --preset "$preset"
    ctest --preset "$preset" -j2
}

run_preset release
if [ "${CI:-}" = "true" ] || [ "${VELLORO_ASAN:-}" = "1" ]; then
    run_preset asan
fi
