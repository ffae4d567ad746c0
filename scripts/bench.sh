#!/usr/bin/env bash
# Benchmarks of the AVI plug-in against the disk (dd, pread) and ffmpeg:
# sequential reads, scrubbing, opening long files, writing, peak memory.
# Builds the release preset's benchmark targets, makes its test files at run
# time on the real disk (under the build tree, or $VELLORO_BENCH_DIR) and
# removes them afterwards; prints one table.
#
#   bash scripts/bench.sh [--json FILE] [--runs N] [--hours H] [--keep]
#   bash scripts/bench.sh --only-many [--open N] [--clips N] [--runs N]   the many-clips rows alone
#
# Needs about 20 GB free for an hour of DV (--hours scales it). Run it as
# root so that the page cache can be dropped before every run.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
bash scripts/install-deps.sh

build="${VELLORO_BENCH_BUILD:-}"
if [ -z "$build" ]; then
    cmake --preset release >/dev/null
    build="$root/build"
else
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build "$build" --target velloro velloro_bench

data="${VELLORO_BENCH_DIR:-$build/benchdata}"
mkdir -p "$data"
if [ "$(findmnt -n -o FSTYPE -T "$data")" = tmpfs ]; then
    echo "bench.sh: $data is on tmpfs; set VELLORO_BENCH_DIR to a directory on a disk" >&2
    exit 1
fi
echo "load before: $(uptime)" >&2
case " $* " in
    *" --only-many "*) ;;
    *) VELLORO_BENCH_DIR="$data" "$build/bin/velloro_microbench" --benchmark_min_time=0.2 >&2 ;;
esac
exec python3 bench/run_bench.py --bin "$build/bin" --data "$data" "$@"
