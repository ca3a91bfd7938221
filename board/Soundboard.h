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
#include <QSet>
#include <QString>
#include <QThreadPool>
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

    // The sentence a voice preview says.
    static QString previewSentence() { return QStringLiteral("Hello! This is how I sound in this voice."); }

signals:
    void playingChanged();
    void statusChanged();
    // A sentence for the user: why a sound didn't play.
    void failed(const QString& message);

private:
    struct Levels {
        double levelDb = 0;
        double duckDb = 0;
    };
    void decodeClips();
    void sayWithEspeak(const QString& text, const Voice& voice, Levels levels, bool preview);
    void sayWithClone(const QString& text, const QUuid& cloneID, Levels levels);
    // Renders `source` through `voice` off the main thread, then plays it (and
    // deletes `source` when `owned`).
    // `entry`, when set, keeps the render for the next play in the same voice.
    void renderAndPlay(const QString& source, bool owned, const Voice& voice, Levels levels, bool preview,
                       const QUuid& entry = {});
    void decodeAndPlay(const QString& path, Levels levels);
    void playSound(std::shared_ptr<const SoundBuffer> sound, Levels levels, bool preview);
    void beginMaking(const QString& status);
    void endMaking();
    void setStatus(const QString& status);
    std::optional<Voice> effectVoice(const QUuid& id) const;

    BoardStore& store_;
    VoiceEngine& engine_;
    VoiceStore& voices_;
    CloneLibrary* library_;
    // Decoded clips by entry id, and the path each came from.
    struct Decoded {
        QString path;
        std::shared_ptr<const SoundBuffer> sound;
        QString error;  // set when the clip didn't decode
    };
    QHash<QUuid, Decoded> clips_;
    // Clips played "in my voice": the last render of each, and the voice it was made with.
    struct Voiced {
        Voice voice;
        std::shared_ptr<const SoundBuffer> sound;
    };
    QHash<QUuid, Voiced> voiced_;
    QSet<QUuid> decoding_;
    QSet<QUuid> playWhenDecoded_;
    int making_ = 0;
    QString status_;
    // Work started before the last stop() is dropped when it comes back.
    int generation_ = 0;
    QThreadPool pool_;  // decoding and rendering, one job at a time
};

}  // namespace parlova
