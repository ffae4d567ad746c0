#!/usr/bin/env bash
# Makes the small AVI test files of the container reader with ffmpeg and,
# beside each, ffmpeg's framemd5 of its video packets and the md5 of each
# audio stream's bytes (FILE.framemd5), so that reader tests are diffs.
#
#   scripts/make-test-files.sh [OUTDIR]     (default: tests/data)
#   scripts/make-test-files.sh --large FILE makes the OpenDML file over 1 GiB
set -euo pipefail

command -v ffmpeg >/dev/null || { echo "ffmpeg is missing: run scripts/install-deps.sh" >&2; exit 1; }
# ff and reference(): the framemd5 lines beside each file
source "$(dirname "${BASH_SOURCE[0]}")/reference.sh"

if [ "${1:-}" = "--large" ]; then
    out=$2
    tmp=$(mktemp -d)
    trap 'rm -rf "$tmp"' EXIT
    # 40 distinct 1280x720 UYVY frames (73 MB) looped by stream copy past 1 GiB:
    # ffmpeg then writes indx per stream, ix## chunks and RIFF AVIX.
    "${ff[@]}" -f lavfi -i testsrc=size=1280x720:rate=25 -f lavfi -i sine=frequency=440:sample_rate=48000 \
        -frames:v 40 -t 1.6 -c:v rawvideo -pix_fmt uyvy422 -vtag UYVY -c:a pcm_s16le -ac 2 "$tmp/seed.avi"
    "${ff[@]}" -stream_loop 15 -i "$tmp/seed.avi" -c copy "$out"
    reference "$out"
    exit 0
fi

out=${1:-tests/data}
mkdir -p "$out"
src=(-f lavfi -i "testsrc=size=64x48:rate=25")
tone=(-f lavfi -i "sine=frequency=440:sample_rate=48000")

"${ff[@]}" "${src[@]}" "${tone[@]}" -frames:v 5 -t 0.2 -c:v rawvideo -pix_fmt uyvy422 -vtag UYVY \
    -c:a pcm_s16le -ac 2 "$out/uyvy_pcm16.avi"
"${ff[@]}" "${src[@]}" "${tone[@]}" -frames:v 5 -t 0.2 -c:v rawvideo -pix_fmt yuyv422 -vtag YUY2 \
    -c:a pcm_s16le -ac 2 "$out/yuy2_pcm16.avi"
"${ff[@]}" -f lavfi -i "testsrc=size=720x576:rate=25" "${tone[@]}" -frames:v 3 -t 0.12 \
    -c:v dvvideo -pix_fmt yuv420p -vtag dvsd -c:a pcm_s16le -ac 2 "$out/dv_pal.avi"
"${ff[@]}" -f lavfi -i "testsrc=size=720x480:rate=30000/1001" "${tone[@]}" -frames:v 3 -t 0.1 \
    -c:v dvvideo -pix_fmt yuv411p -vtag dvsd -c:a pcm_s16le -ac 2 "$out/dv_ntsc.avi"
"${ff[@]}" -f lavfi -i "testsrc=size=720x576:rate=25" "${tone[@]}" -frames:v 2 -t 0.08 \
    -c:v dvvideo -pix_fmt yuv422p -vtag dv50 -c:a pcm_s16le -ac 2 "$out/dv50.avi"
"${ff[@]}" "${src[@]}" "${tone[@]}" -frames:v 5 -t 0.2 -c:v mjpeg -vtag MJPG -c:a pcm_s16le -ac 2 \
    "$out/mjpeg.avi"
"${ff[@]}" "${src[@]}" -frames:v 13 -c:v mpeg2video -bf 2 -g 6 "$out/mpeg2_bframes.avi"
# 24-bit stereo and 16-bit 6-channel PCM: ffmpeg writes WAVEFORMATEXTENSIBLE.
"${ff[@]}" "${src[@]}" "${tone[@]}" "${tone[@]}" -map 0:v -map 1:a -map 2:a -frames:v 3 -t 0.12 \
    -c:v rawvideo -pix_fmt uyvy422 -vtag UYVY -c:a:0 pcm_s24le -ac:a:0 2 -c:a:1 pcm_s16le -ac:a:1 6 \
    "$out/pcm24_6ch.avi"
"${ff[@]}" "${tone[@]}" -t 0.25 -c:a pcm_s16le -ac 1 "$out/audio_only.avi"

for f in "$out"/*.avi; do
    reference "$f"
done
ls -l "$out"
