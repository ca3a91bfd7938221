#pragma once
// Transcripts for new samples, made on this machine. Once cloning is set up
// the clone worker's recogniser (Whisper, with punctuation) hears them; before
// that, or when the worker fails, the local recogniser does (PocketSphinx, in
// a thread of its own). A sample read from a script gets the script's own
// sentences when the recognised words match them well, so the best model
// hears the exact, punctuated words that were read.
//
// Never fails: anything that goes wrong gives no transcript, and the sample
// is kept with an empty one. Main thread; `done` comes back on it.
#include <QStringList>

#include <functional>
#include <optional>

namespace parlova {

class VoiceCloner;

class Transcriber {
public:
    using Done = std::function<void(const std::optional<QString>& transcript)>;

    explicit Transcriber(VoiceCloner* cloner) : cloner_(cloner) {}

    bool isAvailable() const;
    // `script`: the sentences the speaker was asked to read (empty when the
    // file was not read from a script). `done` is called exactly once.
    void transcribe(const QString& path, const QStringList& script, Done done) const;

    // The sentences of `script` that `recognised` matches, in order, when
    // together they account for the recognised words; none otherwise.
    static std::optional<QString> snapToScript(const QString& recognised, const QStringList& script);

private:
    static void transcribeLocally(const QString& path, const QStringList& script, Done done);

    VoiceCloner* cloner_;
};

}  // namespace parlova
