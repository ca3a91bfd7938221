#pragma once
// English speech recognition on this machine without the clone worker:
// CMU PocketSphinx with its US English acoustic model, language model and
// dictionary (Debian packages libpocketsphinx-dev and pocketsphinx-en-us).
//
// It hears lower-case words without punctuation and makes mistakes on
// unusual words, so its text is best snapped to a reading script; on its own
// it gives a capitalised sentence ending in a full stop.
//
// recognise() decodes the whole file and blocks for about a fifth of the
// file's length: call it off the main thread. Any thread; each call makes its
// own decoder.
#include <QString>

#include <optional>

namespace parlova {

namespace LocalRecogniser {

// Whether the recogniser and its English model are on this machine.
bool isAvailable();

// The words heard in the audio file at `path` (any format the app opens),
// none when the file can't be read or nothing was heard.
std::optional<QString> recognise(const QString& path);

}  // namespace LocalRecogniser

}  // namespace parlova
