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
# Share of one core used by the given processes over $seconds, after 2 s to settle.
share() {
    sleep 2
    before=$(ticks "$@")
    sleep "$seconds"
    after=$(ticks "$@")
    echo "$after $before $hz $seconds" | awk '{printf "%.2f", 100 * ($1 - $2) / $3 / $4}'
}

build/parlova-cli live --voice "$voice" --quiet --seconds $((seconds + 4)) "$@" &
app=$!
app_share=$(share "$PARLOVA_PULSE_PID" "$app")
wait "$app" || true

mkfifo "$dir/a" "$dir/b"
parec --format=float32le --rate=48000 --channels=1 >"$dir/a" &
rec=$!
sox -q -t raw -r 48000 -e float -b 32 -c 1 "$dir/a" -t raw - pitch 650 >"$dir/b" &
fx=$!
pacat --format=float32le --rate=48000 --channels=1 <"$dir/b" &
play=$!
sox_share=$(share "$PARLOVA_PULSE_PID" "$rec" "$fx" "$play")
kill "$rec" "$fx" "$play" 2>/dev/null || true
wait 2>/dev/null || true

echo "live \"$voice\" $*: $app_share % of one core (server + app)"
echo "parec | sox pitch 650 | pacat: $sox_share % of one core (server + pipeline)"
echo "$app_share $sox_share" | awk '{printf "ratio: %.2f\n", $1 / $2}'
