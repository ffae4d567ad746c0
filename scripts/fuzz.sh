#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan+UBSan) and runs them: the
# container's, and the plug-in driven through the stand-in's reader resource.
#
#   scripts/fuzz.sh build                  configure and build build-fuzz/
#   scripts/fuzz.sh run TARGET SECONDS     fuzz one target; new inputs go to build-fuzz/corpus/TARGET
#   scripts/fuzz.sh replay [TARGET...]     run the committed corpus and regression inputs once
#   scripts/fuzz.sh ci SECONDS             replay all, then fuzz every target for SECONDS each
#   scripts/fuzz.sh merge TARGET           fold build-fuzz/corpus/TARGET into fuzz/corpus/TARGET, minimised
#
# A finding is written to build-fuzz/artifacts/; add it to fuzz/regressions/TARGET/
# with its fix. VELLORO_FUZZ_BUILD names another build directory.
set -euo pipefail
cd "$(dirname "$0")/.."

BUILD=${VELLORO_FUZZ_BUILD:-build-fuzz}
TARGETS=(fuzz_reader_open fuzz_reader_read fuzz_index fuzz_writer_roundtrip fuzz_timecode fuzz_repair
    fuzz_plugin_reader)
LIMITS=(-rss_limit_mb=2560 -malloc_limit_mb=512 -timeout=25)

build() {
    cmake -S . -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DVELLORO_FUZZ=ON -DVELLORO_TESTS=OFF >/dev/null
    cmake --build "$BUILD" --target fuzzers -j "${VELLORO_JOBS:-2}"
}

known() {
    local t
    for t in "${TARGETS[@]}"; do [ "$t" = "$1" ] && return 0; done
    echo "unknown target $1; one of: ${TARGETS[*]}" >&2
    return 1
}

# Options of one target: the reader targets start from the test files.
options() {
    local t=$1
    local opts=("${LIMITS[@]}" -dict=fuzz/avi.dict -print_final_stats=1)
    case $t in
        fuzz_reader_open|fuzz_reader_read|fuzz_repair) opts+=(-max_len=131072) ;;
        # Clips of up to a MiB: the header, index and first frames of the
        # real-world corpus; each input is one clip open in the editor.
        fuzz_plugin_reader) opts+=(-max_len=1048576 -timeout=10) ;;
        fuzz_timecode) opts+=(-close_fd_mask=2) ;; # its parser reports bad text on stderr
    esac
    printf '%s\n' "${opts[@]}"
}

# The test files small enough to fuzz from, as seeds of the reader targets.
# The plug-in's target takes the real-world corpus too (scripts/make-corpus.sh,
# as ctest makes it in build/corpus) when it is there: files up to 4 MB, of
# which the fuzzer keeps the first MiB.
seeds() {
    local dir="$BUILD/seeds/$1"
    mkdir -p "$dir"
    if [ "$1" = fuzz_plugin_reader ]; then
        find tests/data -maxdepth 1 -name '*.avi' -exec cp -u {} "$dir/" \;
        local corpus=${VELLORO_CORPUS_DIR:-build/corpus}
        [ -d "$corpus" ] && find "$corpus" -maxdepth 1 -name '*.avi' -size -4096k -exec cp -u {} "$dir/" \;
    else
        find tests/data -maxdepth 1 -name '*.avi' -size -128k -exec cp -u {} "$dir/" \;
    fi
    echo "$dir"
}

run() {
    local t=$1 seconds=$2
    known "$t"
    local work="$BUILD/corpus/$t"
    mkdir -p "$work" "$BUILD/artifacts" "fuzz/corpus/$t"
    local dirs=("$work" "fuzz/corpus/$t")
    case $t in fuzz_reader_*|fuzz_repair|fuzz_plugin_reader) dirs+=("$(seeds "$t")") ;; esac
    [ -d "fuzz/regressions/$t" ] && dirs+=("fuzz/regressions/$t")
    mapfile -t opts < <(options "$t")
    "$BUILD/bin/$t" "${opts[@]}" -max_total_time="$seconds" -artifact_prefix="$BUILD/artifacts/$t-" "${dirs[@]}"
}

replay() {
    local t
    for t in "$@"; do
        known "$t"
        local inputs=()
        [ -d "fuzz/corpus/$t" ] && inputs+=("fuzz/corpus/$t")
        [ -d "fuzz/regressions/$t" ] && inputs+=("fuzz/regressions/$t")
        [ ${#inputs[@]} -eq 0 ] && continue
        mapfile -t opts < <(options "$t")
        echo "== replay $t"
        "$BUILD/bin/$t" "${opts[@]}" -runs=0 "${inputs[@]}"
    done
}

merge() {
    local t=$1
    known "$t"
    mkdir -p "fuzz/corpus/$t"
    mapfile -t opts < <(options "$t")
    # Small inputs only: the committed corpus stays a few hundred KB.
    "$BUILD/bin/$t" "${opts[@]}" -max_len=16384 -merge=1 "fuzz/corpus/$t" "$BUILD/corpus/$t"
}

case ${1:-} in
    build) build ;;
    run) [ $# -eq 3 ] || { echo "usage: $0 run TARGET SECONDS" >&2; exit 2; }; build; run "$2" "$3" ;;
    replay) build; shift; if [ $# -eq 0 ]; then replay "${TARGETS[@]}"; else replay "$@"; fi ;;
    ci)
        [ $# -eq 2 ] || { echo "usage: $0 ci SECONDS" >&2; exit 2; }
        build
        replay "${TARGETS[@]}"
        for t in "${TARGETS[@]}"; do
            echo "== fuzz $t for $2 s"
            run "$t" "$2"
        done
        ;;
    merge) [ $# -eq 2 ] || { echo "usage: $0 merge TARGET" >&2; exit 2; }; build; merge "$2" ;;
    *) sed -n '2,12p' "$0" >&2; exit 2 ;;
esac
