#!/usr/bin/env bash
# Installs the build under a fresh prefix and builds its Debian package, then
# runs velloro render and probe from each, away from the build tree: the run
# paths and the plug-in's place beside bin/ must hold wherever it lands.
#
#   scripts/check-package.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset VELLORO_PLUGIN

try() {
    local bin=$1
    (cd "$work" && "$bin" render "$work/clip.avi" -y -q --size 64x48 --seconds 0.5)
    local probe
    probe=$("$bin" probe "$work/clip.avi")
    grep -q '^video: 64x48 fourcc=UYVY$' <<<"$probe" || { echo "$bin probe: $probe" >&2; exit 1; }
    local version
    version=$("$bin" --version)
    [[ $version == "velloro "* ]] || { echo "$bin --version: $version" >&2; exit 1; }
}

cmake --install "$build" --prefix "$work/prefix" >/dev/null
try "$work/prefix/bin/velloro"

(cd "$build" && cpack -B "$work/package" >/dev/null)
deb=$(ls "$work"/package/velloro_*_*.deb)
info=$(dpkg-deb -I "$deb")
grep -q 'Depends: .*libmd0' <<<"$info" || { echo "$deb: no dependency on libmd0: $info" >&2; exit 1; }
dpkg-deb -x "$deb" "$work/root"
try "$work/root/usr/bin/velloro"
echo "installed and packaged: $(basename "$deb")"
