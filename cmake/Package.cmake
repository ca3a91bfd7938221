# The Debian package made by `scripts/package` (cpack -G DEB): the shared
# libraries' packages are computed by dpkg-shlibdeps; what the programs only
# run or read at run time is named here.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME parlova)
set(CPACK_PACKAGE_VENDOR "The Parlova developers")
set(CPACK_PACKAGE_CONTACT "The Parlova developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "voice changer for live speech, calls and recordings")
set(CPACK_PACKAGE_DESCRIPTION "Parlova changes your voice as you speak, for you and for call apps through
its virtual microphone, and plays back or exports recorded clips in a voice.
Voices are presets of pitch, formant, vibrato, tremolo, grain, tone and
reverb. Cloned voices speak typed text in a consenting speaker's voice with
a speech model that runs locally. Includes the desktop app and parlova-cli.")
set(CPACK_PACKAGE_HOMEPAGE_URL "${PARLOVA_HOMEPAGE}")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The window's X11 and Wayland platform plugins (loaded, never linked), the
# recogniser's English model, and what cloning setup runs: ffmpeg for the
# worker's audio, python3 with venv to bring uv when the desktop has none.
# Recommended: espeak-ng speaks typed sentences and voice previews.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, pocketsphinx-en-us, ffmpeg, python3, python3-venv")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "espeak-ng, qt6-wayland, fonts-noto-color-emoji, xdg-desktop-portal")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "git, pipewire-pulse | pulseaudio")

include(CPack)
