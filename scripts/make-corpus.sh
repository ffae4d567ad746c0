#!/usr/bin/env bash
# Makes the reader's corpus: the AVI files of tests/corpus/variants.txt, each
# a source from ffmpeg or GStreamer, as written or rewritten by
# scripts/avi_rewrite.py, with ffmpeg's framemd5 lines beside it
# (NAME.avi.framemd5, as scripts/make-test-files.sh makes them).
#
#   scripts/make-corpus.sh OUTDIR
#
# A file newer than its list, this script and the rewrite tool is kept, so a
# second run only checks. The sources are made in a temporary folder, or in
# $CORPUS_SOURCES when set, where they stay to be compared with the corpus.
set -euo pipefail
shopt -s inherit_errexit

[ $# -eq 1 ] || { echo "usage: $0 OUTDIR" >&2; exit 2; }
for tool in ffmpeg ffprobe gst-launch-1.0 python3; do
    command -v "$tool" >/dev/null || { echo "$tool is missing: run scripts/install-deps.sh" >&2; exit 1; }
done

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
list=$here/../tests/corpus/variants.txt
rewrite=$here/avi_rewrite.py
# ff and reference(): the framemd5 lines beside each file
source "$here/reference.sh"

out=$1
mkdir -p "$out"
if [ -n "${CORPUS_SOURCES:-}" ]; then
    sources=$CORPUS_SOURCES
    mkdir -p "$sources"
else
    sources=$(mktemp -d)
    trap 'rm -rf "$sources"' EXIT
fi

# Bit-exact: no encoder or muxer version in the files, so they stay the same
# from one ffmpeg release to the next.
exact=(-fflags +bitexact -flags:v +bitexact)
bars() { echo "testsrc=size=$1:rate=$2"; }
tone=(-f lavfi -i "sine=frequency=440:sample_rate=48000")
pcm=(-c:a pcm_s16le -ac 2)
# 20 frames of 320x240 at 25 fps with 1920 samples of 48 kHz stereo each
gst_video="videotestsrc num-buffers=20 ! video/x-raw,width=320,height=240,framerate=25/1"
gst_audio="audiotestsrc num-buffers=20 samplesperbuffer=1920 ! audio/x-raw,format=S16LE,rate=48000,channels=2"

# make_source RECIPE FILE
make_source() {
    local f=$2
    case $1 in
    ff_uyvy_pcm)
        "${ff[@]}" -f lavfi -i "$(bars 320x240 25)" "${tone[@]}" -t 0.64 \
            -c:v rawvideo -pix_fmt uyvy422 -vtag UYVY "${pcm[@]}" "${exact[@]}" "$f" ;;
    ff_uyvy_4k)
        # frames of 16.6 MB, past 16 MiB
        "${ff[@]}" -f lavfi -i "$(bars 3840x2160 25)" "${tone[@]}" -t 0.12 \
            -c:v rawvideo -pix_fmt uyvy422 -vtag UYVY "${pcm[@]}" "${exact[@]}" "$f" ;;
    ff_dv_pal)
        "${ff[@]}" -f lavfi -i "$(bars 720x576 25)" "${tone[@]}" -t 0.6 \
            -c:v dvvideo -pix_fmt yuv420p -vtag dvsd "${pcm[@]}" "${exact[@]}" "$f" ;;
    ff_dv_ntsc)
        "${ff[@]}" -f lavfi -i "$(bars 720x480 30000/1001)" "${tone[@]}" -t 0.5 \
            -c:v dvvideo -pix_fmt yuv411p -vtag dvsd "${pcm[@]}" "${exact[@]}" "$f" ;;
    ff_mpeg2_pcm)
        # long GOP: an I frame every 12, two B frames between references
        "${ff[@]}" -f lavfi -i "$(bars 720x576 25)" "${tone[@]}" -t 1 \
            -c:v mpeg2video -g 12 -bf 2 -b:v 4M "${pcm[@]}" "${exact[@]}" "$f" ;;
    ff_dv_pal_tff)
        # coded upper field first: the frames' control pack says so
        "${ff[@]}" -f lavfi -i "$(bars 720x576 25)" "${tone[@]}" -t 0.4 \
            -c:v dvvideo -pix_fmt yuv420p -vtag dvsd -top 1 "${pcm[@]}" -fflags +bitexact -flags:v +bitexact+ildct "$f" ;;
    ff_dv_subcode_tc)
        # a deck's timecode in the frames' subcode, and no ISMP to say it
        "${ff[@]}" -f lavfi -i "$(bars 720x480 30000/1001)" -t 0.4 \
            -c:v dvvideo -pix_fmt yuv411p -timecode "01:02:03;04" "${exact[@]}" -f dv "$f.dv"
        "${ff[@]}" -i "$f.dv" -map_metadata -1 -c copy -vtag dvsd "${exact[@]}" "$f"
        rm -f "$f.dv" ;;
    ff_uyvy_ntsc_tc)
        # ffmpeg's ISMP in drop frame
        "${ff[@]}" -f lavfi -i "$(bars 320x240 30000/1001)" "${tone[@]}" -t 0.4 \
            -c:v rawvideo -pix_fmt uyvy422 -vtag UYVY "${pcm[@]}" -timecode "01:00:00;00" "${exact[@]}" "$f" ;;
    ff_mpeg2_51)
        # 5.1 PCM: six channels in a WAVE_FORMAT_EXTENSIBLE
        "${ff[@]}" -f lavfi -i "$(bars 720x576 25)" "${tone[@]}" -t 1 \
            -c:v mpeg2video -g 12 -bf 2 -b:v 4M -c:a pcm_s16le -ac 6 "${exact[@]}" "$f" ;;
    ff_dv50_4ch)
        "${ff[@]}" -f lavfi -i "$(bars 720x576 25)" "${tone[@]}" -t 0.4 \
            -c:v dvvideo -pix_fmt yuv422p -vtag dv50 -c:a pcm_s16le -ac 4 "${exact[@]}" "$f" ;;
    ff_uyvy_u8 | ff_uyvy_s32)
        # the widths at either end: 8-bit mono as old software wrote it,
        # 32-bit stereo as some capture cards do
        local audio=(-c:a pcm_u8 -ac 1)
        [ "$1" = ff_uyvy_s32 ] && audio=(-c:a pcm_s32le -ac 2)
        "${ff[@]}" -f lavfi -i "$(bars 320x240 25)" "${tone[@]}" -t 0.4 \
            -c:v rawvideo -pix_fmt uyvy422 -vtag UYVY "${audio[@]}" "${exact[@]}" "$f" ;;
    gst_uyvy_pcm)
        gst-launch-1.0 -q $gst_video,format=UYVY ! mux. $gst_audio ! mux. \
            avimux name=mux ! filesink location="$f" ;;
    gst_mjpeg_pcm)
        gst-launch-1.0 -q $gst_video ! jpegenc ! mux. $gst_audio ! mux. \
            avimux name=mux ! filesink location="$f" ;;
    *)
        echo "$list: no recipe for source $1" >&2
        return 1 ;;
    esac
}

source_file() {
    local f=$sources/$1.avi
    if [ ! -s "$f" ]; then
        make_source "$1" "$sources/$1.new.avi"
        mv "$sources/$1.new.avi" "$f"
    fi
    echo "$f"
}

# A corpus file is kept when it is newer than everything that makes it.
up_to_date() {
    local dep
    [ -f "$1" ] || return 1
    for dep in "$list" "$rewrite" "${BASH_SOURCE[0]}" "$here/reference.sh"; do
        [ "$1.framemd5" -nt "$dep" ] || return 1
    done
}

made=0 kept=0
while read -r -u 3 name recipe flags; do
    case $name in '' | '#'*) continue ;; esac
    flags=${flags%%#*}
    recipe=${recipe%%#*}
    f=$out/$name.avi
    if up_to_date "$f"; then
        kept=$((kept + 1))
        continue
    fi
    src=$(source_file "$recipe")
    new=$out/.$name.new.avi
    if [ -z "${flags// /}" ]; then
        cp "$src" "$new"
    else
        # shellcheck disable=SC2086 # the options are words of the list
        python3 "$rewrite" "$src" "$new" $flags
    fi
    reference "$new"
    mv "$new" "$f"
    mv "$new.framemd5" "$f.framemd5"
    made=$((made + 1))
done 3<"$list"
echo "corpus in $out: $made made, $kept already up to date"
