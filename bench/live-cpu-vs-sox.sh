#!/bin/sh
# Whole-system CPU of live mode (the sound server and parlova-cli together)
# against the simplest live pitch changer Linux users put together,
# `parec | sox pitch | pacat`, on the same private server with the same real
# speech looping into its fake microphone. Prints each as a share of one core
# and their ratio, and how often their threads woke up (voluntary context
# switches of all threads: a thread that sleeps and is woken; being preempted
# on a busy machine does not count), which is most of what a live route costs.
#
#   sh bench/live-cpu-vs-sox.sh [SECONDS] [VOICE] [-- MORE LIVE OPTIONS]
#
# Defaults: 20 seconds, "Old Lady" (sox shifts by the same +6.5 semitones).
# PARLOVA_CLI=path runs another build of parlova-cli (an older commit's, to
# compare both against the same pipeline in one session); PARLOVA_CPU_THREADS=1
# also lists the wake-ups of each thread of the server and the app.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-20}
voice=${2:-Old Lady}
[ $# -ge 2 ] && shift 2 || shift $#
[ "${1:-}" = "--" ] && shift
speech=/usr/share/codec2/raw/speech_orig_16k.wav
[ -r "$speech" ] || { echo "needs the speech of codec2-examples" >&2; exit 1; }
hz=$(getconf CLK_TCK)
cli=${PARLOVA_CLI:-build/parlova-cli}

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
# Voluntary context switches of every thread of the given processes.
switches() {
    cat "$@" 2>/dev/null | awk '/^voluntary_ctxt_switches/ {n += $2} END {print n + 0}'
}
task_status() {
    for pid in "$@"; do printf '%s ' /proc/"$pid"/task/*/status; done
}
# Per thread: "pid/tid name switches", for a breakdown.
thread_switches() {
    for f in $(task_status "$@"); do
        [ -r "$f" ] && awk -v f="$f" '/^Name:/ {name = $0; sub(/^Name:[ \t]*/, "", name); gsub(/[ \t]/, "_", name)} /^voluntary_ctxt_switches/ {n += $2} END {print f, name, n}' "$f"
    done 2>/dev/null
}
# Share of one core used by the server (the first process) and the client
# processes after it, over $seconds after 2 s to settle, and the wake-ups per
# second of both: "TOTAL SERVER WAKEUPS SERVER_WAKEUPS".
share() {
    server=$1
    sleep 2
    before=$(ticks "$@")
    server_before=$(ticks "$server")
    wakes_before=$(switches $(task_status "$@"))
    server_wakes_before=$(switches $(task_status "$server"))
    [ -z "${PARLOVA_CPU_THREADS:-}" ] || thread_switches "$@" >"$dir/threads.before"
    sleep "$seconds"
    after=$(ticks "$@")
    server_after=$(ticks "$server")
    wakes_after=$(switches $(task_status "$@"))
    server_wakes_after=$(switches $(task_status "$server"))
    if [ -n "${PARLOVA_CPU_THREADS:-}" ]; then
        thread_switches "$@" >"$dir/threads.after"
        sort -o "$dir/threads.before" "$dir/threads.before"
        sort "$dir/threads.after" | join "$dir/threads.before" - 2>/dev/null |
            awk -v s="$seconds" '{split($1, p, "/"); printf "    %s/%s %-24s %6.0f wake-ups/s\n", p[3], p[5], $2, ($5 - $3) / s}' >&2
    fi
    echo "$after $before $server_after $server_before $hz $seconds $wakes_after $wakes_before" \
        "$server_wakes_after $server_wakes_before" |
        awk '{printf "%.2f %.2f %.0f %.0f", 100 * ($1 - $2) / $5 / $6, 100 * ($3 - $4) / $5 / $6,
              ($7 - $8) / $6, ($9 - $10) / $6}'
}

"$cli" live --voice "$voice" --quiet --seconds $((seconds + 4)) "$@" &
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
echo "live \"$voice\": $1 % of one core (server $2 %, the rest the app); $3 wake-ups/s (server $4)"
echo "parec | sox pitch 650 | pacat: $5 % of one core (server $6 %, the rest the pipeline); $7 wake-ups/s (server $8)"
echo "the same with live mode's buffer sizes: $9 % of one core (server ${10} %); ${11} wake-ups/s (server ${12})"
echo "$1 $5 $9" | awk '{printf "ratio: %.2f (against the pipeline at live mode'"'"'s buffer sizes: %.2f)\n", $1 / $2, $1 / $3}'
