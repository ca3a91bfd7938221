#!/bin/sh
# Whole-system CPU of live mode (the sound server and parlova-cli together)
# against the simplest live pitch changer Linux users put together,
# `parec | sox pitch | pacat`, on the same private server with the same real
# speech looping into its fake microphone. Prints each as a share of one core
# and their ratio.
#
#   sh bench/live-cpu-vs-sox.sh [SECONDS] [VOICE] [-- MORE LIVE OPTIONS]
#
# Defaults: 20 seconds, "Old Lady" (sox shifts by the same +6.5 semitones).
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-20}
voice=${2:-Old Lady}
[ $# -ge 2 ] && shift 2 || shift $#
[ "${1:-}" = "--" ] && shift
speech=/usr/share/codec2/raw/speech_orig_16k.wav
[ -r "$speech" ] || { echo "needs the speech of codec2-examples" >&2; exit 1; }
hz=$(getconf CLK_TCK)

dir=$(mktemp -d "${TMPDIR:-/tmp}/parlova-cpu.XXXXXX")
eval "$(sh tests/fixtures/pulse-server.sh start "$dir/pulse" --feed "$speech")"
trap 'sh tests/fixtures/pulse-server.sh stop "$dir/pulse"; rm -rf "$dir"' EXIT

# CPU ticks (user + system) of the given processes, all their threads.
ticks() {
    total=0
    for pid in "$@"; do
        t=$(awk '{print $14 + $15}' "/proc/$pid/stat" 2>/dev/null || echo 0)
        total=$((total + t))
    done
    echo "$total"
}
# Share of one core used by the server (the first process) and the client
# processes after it, over $seconds after 2 s to settle: "TOTAL SERVER".
share() {
    server=$1
    sleep 2
    before=$(ticks "$@")
    server_before=$(ticks "$server")
    sleep "$seconds"
    after=$(ticks "$@")
    server_after=$(ticks "$server")
    echo "$after $before $server_after $server_before $hz $seconds" |
        awk '{printf "%.2f %.2f", 100 * ($1 - $2) / $5 / $6, 100 * ($3 - $4) / $5 / $6}'
}

build/parlova-cli live --voice "$voice" --quiet --seconds $((seconds + 4)) "$@" &
app=$!
app_share=$(share "$PARLOVA_PULSE_PID" "$app")
wait "$app" || true

# The pipeline with the given extra options for parec, sox and pacat.
pipeline() {
    rm -f "$dir/a" "$dir/b"
    mkfifo "$dir/a" "$dir/b"
    parec --format=float32le --rate=48000 --channels=1 $1 >"$dir/a" &
    rec=$!
    sox -q $2 -t raw -r 48000 -e float -b 32 -c 1 "$dir/a" -t raw - pitch 650 >"$dir/b" &
    fx=$!
    pacat --format=float32le --rate=48000 --channels=1 $3 <"$dir/b" &
    play=$!
    share "$PARLOVA_PULSE_PID" "$rec" "$fx" "$play"
    kill "$rec" "$fx" "$play" 2>/dev/null || true
    wait "$rec" "$fx" "$play" 2>/dev/null || true
}
# As users run it (the tools' own buffering, seconds of it), and with the
# buffers live mode uses (10 ms capture blocks, 20 ms queued for the output).
sox_share=$(pipeline "" "" "")
tight_share=$(pipeline "--latency-msec=10" "--buffer 480" "--latency-msec=20")

set -- $app_share $sox_share $tight_share
echo "live \"$voice\": $1 % of one core (server $2 %, the rest the app)"
echo "parec | sox pitch 650 | pacat: $3 % of one core (server $4 %, the rest the pipeline)"
echo "the same with live mode's buffer sizes: $5 % of one core (server $6 %)"
echo "$1 $3 $5" | awk '{printf "ratio: %.2f (against the pipeline at live mode'"'"'s buffer sizes: %.2f)\n", $1 / $2, $1 / $3}'
