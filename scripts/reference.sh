# Sourced by the scripts that make test files: ffmpeg's view of an AVI file,
# written beside it as FILE.framemd5 so that reader tests are diffs.

ff=(ffmpeg -nostdin -hide_banner -loglevel error -y)

# The reference lines: every video packet, then one MD5 line per audio stream.
reference() {
    local f=$1
    local streams
    streams=$(ffprobe -v error -show_entries stream=codec_type -of csv=p=0 "$f")
    {
        if grep -q video <<<"$streams"; then
            "${ff[@]}" -i "$f" -map 0:v -c copy -f framemd5 -
        fi
        local n=0
        while read -r kind; do
            if [ "$kind" = audio ]; then
                printf 'audio %d ' "$n"
                "${ff[@]}" -i "$f" -map "0:a:$n" -c copy -f md5 -
                n=$((n + 1))
            fi
        done <<<"$streams"
    } >"$f.framemd5"
}
