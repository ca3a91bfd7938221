#!/usr/bin/env bash
# Builds the Debian package, unpacks it into a scratch root and runs the
# unpacked programs from there, away from the source and build trees, as a
# user's installed copy would run. Needs dpkg-deb, appstreamcli,
# desktop-file-validate and sox; strace, when it works here, proves that
# nothing is read from the trees.
# Usage: tests/package/check-deb.sh   (from any directory)
set -euo pipefail

repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
pass() { echo "ok: $*"; }

deb="$(PARLOVA_PACKAGE_DIR="$scratch/out" sh "$repo/scripts/package")"
build="$(cd "$repo" && cd "${PARLOVA_BUILD_DIR:-build}" && pwd)"
version="$(dpkg-deb -f "$deb" Version)"
arch="$(dpkg --print-architecture)"
[ "$(basename "$deb")" = "parlova_${version}_${arch}.deb" ] && pass "named $(basename "$deb")" ||
    fail "package file $(basename "$deb") is not parlova_${version}_${arch}.deb"

# Dependencies: the computed shared libraries, and what only runs or loads.
depends="$(dpkg-deb -f "$deb" Depends)"
for needed in libqt6widgets6 libpulse0 libavcodec ffmpeg pocketsphinx-en-us python3-venv qt6-qpa-plugins; do
    [[ "$depends" == *"$needed"* ]] || fail "Depends lacks $needed: $depends"
done
outside="$(dpkg-deb -c "$deb" | awk '{print $6}' | grep -v '^\./usr/' | grep -v '^\./$' || true)"
[ -z "$outside" ] && pass "every file under /usr" || fail "files outside /usr: $outside"

root="$scratch/root"
dpkg-deb -x "$deb" "$root"
usr="$root/usr"
for file in bin/parlova bin/parlova-cli share/man/man1/parlova.1 share/man/man1/parlova-cli.1 \
    share/bash-completion/completions/parlova-cli share/zsh/site-functions/_parlova-cli \
    share/fish/vendor_completions.d/parlova-cli.fish \
    share/parlova/worker/clone_worker.py share/parlova/worker/pyproject.toml share/parlova/worker/uv.lock; do
    [ -s "$usr/$file" ] || fail "missing /usr/$file"
done
left="$(cd "$usr/share/parlova/worker" && find . \( -name .venv -o -name __pycache__ -o -name '*.pyc' \
    -o -name tests -o -name '.*_cache' \) -print)"
[ -z "$left" ] && pass "worker files without environments or caches" || fail "worker carries: $left"

# One application ID names the launcher, its icon and the AppStream data.
desktop="$(ls "$usr"/share/applications/*.desktop)"
id="$(basename "$desktop" .desktop)"
metainfo="$usr/share/metainfo/$id.metainfo.xml"
[ -f "$metainfo" ] || fail "no metainfo named after the launcher's ID $id"
icon="$(sed -n 's/^Icon=//p' "$desktop")"
[ "$icon" = "$id" ] || fail "launcher icon $icon is not $id"
[ -f "$usr/share/icons/hicolor/scalable/apps/$icon.svg" ] || fail "no icon file for $icon"
grep -q "<id>$id</id>" "$metainfo" || fail "metainfo id is not $id"
grep -q "<launchable type=\"desktop-id\">$id.desktop</launchable>" "$metainfo" || fail "metainfo launches another entry"
newest="$(sed -n 's/.*<release version="\([^"]*\)".*/\1/p' "$metainfo" | head -n 1)"
[ "$newest" = "$version" ] || fail "metainfo's newest release is $newest, the package is $version"
grep -q "^app-id: $id\$" "$repo/packaging/flatpak/$id.yml" || fail "no Flatpak manifest for $id"
appstreamcli validate --no-net "$metainfo" >"$scratch/appstream.log" 2>&1 && pass "appstreamcli validate" ||
    { cat "$scratch/appstream.log" >&2; fail "appstreamcli validate"; }
desktop-file-validate "$desktop" && pass "desktop-file-validate" || fail "desktop-file-validate"
bash -c "source '$usr/share/bash-completion/completions/parlova-cli' && complete -p parlova-cli" >/dev/null ||
    fail "the bash completion registers nothing for parlova-cli"

# The unpacked programs run from elsewhere, with a fresh home, no sound
# server, no display and the build folder off their path.
home="$scratch/home"
work="$scratch/work"
mkdir -p "$home" "$work" "$scratch/runtime"
chmod 700 "$scratch/runtime"
run() {
    (cd "$work" && env -i PATH=/usr/bin:/bin HOME="$home" XDG_RUNTIME_DIR="$scratch/runtime" \
        PARLOVA_NO_REALTIME=1 "$@")
}
traced=()
if strace -f -o /dev/null true 2>/dev/null; then
    traced=(strace -f -qq -e trace=%file,%process -o "$scratch/trace")
    : >"$scratch/files"
else
    echo "note: strace cannot trace here; files read from the trees are not checked"
fi
traced_run() {
    local status=0
    run "${traced[@]}" "$@" || status=$?
    [ ${#traced[@]} -eq 0 ] || cat "$scratch/trace" >>"$scratch/files"
    return $status
}

[ "$(run "$usr/bin/parlova-cli" --version)" = "parlova-cli $version" ] && pass "parlova-cli --version" ||
    fail "parlova-cli --version is not $version: $(run "$usr/bin/parlova-cli" --version)"
[ "$(run "$usr/bin/parlova" --version)" = "Parlova $version" ] && pass "parlova --version" ||
    fail "parlova --version is not $version: $(run "$usr/bin/parlova" --version 2>&1)"

sox -n -r 48000 -c 1 -b 16 "$work/tone.wav" synth 1 sine 220 vol 0.5
if traced_run "$usr/bin/parlova-cli" render --voice "Old Lady" tone.wav voiced.wav; then
    seconds="$(soxi -D "$work/voiced.wav")"
    rms="$(sox "$work/voiced.wav" -n stat 2>&1 | awk '/RMS +amplitude/ {print $3}')"
    awk -v s="$seconds" -v r="$rms" 'BEGIN { exit !(s > 1.5 && r > 0.01) }' &&
        pass "render: ${seconds}s, RMS $rms" || fail "render wrote ${seconds}s at RMS $rms"
else
    fail "parlova-cli render"
fi

if traced_run "$usr/bin/parlova" --screenshot window.png --select "Old Lady"; then
    file "$work/window.png" | grep -q "PNG image data, 1000 x 760" && pass "window screenshot" ||
        fail "screenshot is $(file -b "$work/window.png")"
else
    fail "parlova --screenshot"
fi

if [ ${#traced[@]} -gt 0 ]; then
    reached="$(grep -F -e "\"$repo/" -e "\"$build/" "$scratch/files" | head -n 5 || true)"
    [ -z "$reached" ] && pass "nothing read from the source or build tree" ||
        fail "the installed programs reached the trees: $reached"
fi

[ "$failures" -eq 0 ] && echo "Package checks passed: $(basename "$deb")" || echo "$failures package checks failed" >&2
exit $((failures > 0))
