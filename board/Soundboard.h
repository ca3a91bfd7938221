#pragma once
// Plays the board: a clip or a typed sentence goes into the live output,
// mixed after the voice stage (and into the monitor while "Hear myself" is
// on), lowering the live voice by the entry's ducking while it plays. Without
// live mode it plays on the output device as a preview. Clips are decoded
// once, when the board loads or gains them, on a background thread.
//
// Typed speech: a cloned voice's worker speaks it (the checked-take path);
// otherwise espeak-ng says it and the effect voice is rendered over it. Both
// run off the main thread and play as soon as the sound is ready.
//
// Main thread only.
#include "engine/SoundBuffer.h"
#include "voices/Voice.h"

#include <QHash>
#include <QObject>
#include <QString>
#include <QUuid>

#include <memory>
#include <optional>

namespace parlova {

class BoardStore;
class CloneLibrary;
class VoiceEngine;
class VoiceStore;

class Soundboard : public QObject {
    Q_OBJECT
public:
    // Who says a typed sentence: a cloned voice, else an effect voice, else
    // (both null) the voice selected now.
    struct Speaker {
        QUuid voiceID;
        QUuid cloneID;
    };

    // `library` may be null (no cloned voices).
    Soundboard(BoardStore& store, VoiceEngine& engine, VoiceStore& voices, CloneLibrary* library,
               QObject* parent = nullptr);
    ~Soundboard() override;

    // Plays an entry. False, with the sentence in failed(), when it can't
    // start (no such entry, a clip that didn't decode); a sentence still being
    // made plays once it is ready.
    bool play(const QUuid& id);
    // Stops every sound the board plays and forgets sentences still being made.
    void stop();
    // Speaks typed text into the call (or as a preview).
    bool say(const QString& text, const Speaker& speaker = {});
    // Plays a built-in sentence through `voice` on the output device.
    void previewVoice(const Voice& voice);

    // Whether a board sound plays now.
    bool isPlaying() const;
    // A sentence is being made (espeak-ng or the worker).
    bool isMaking() const { return making_ > 0; }
    // What the board does now, a short line for the window ("Speaking…", "").
    QString status() const { return status_; }

signals:
    void playingChanged();
    void statusChanged();
    // A sentence for the user: why a sound didn't play.
    void failed(const QString& message);

private:
    BoardStore& store_;
    VoiceEngine& engine_;
    VoiceStore& voices_;
    CloneLibrary* library_;
    QHash<QUuid, std::shared_ptr<const SoundBuffer>> sounds_;
    int making_ = 0;
    QString status_;
};

}  // namespace parlova
