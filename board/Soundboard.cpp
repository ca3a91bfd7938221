#include "board/Soundboard.h"

#include "board/BoardStore.h"
#include "cloning/CloneLibrary.h"
#include "cloning/Generation.h"
#include "cloning/VoiceCloner.h"
#include "common/VoiceEngineError.h"
#include "engine/OfflineRenderer.h"
#include "engine/VoiceEngine.h"
#include "voices/VoiceStore.h"

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QProcess>
#include <QStandardPaths>
#include <QUuid>

namespace parlova {

namespace {

QString workFolder() {
    const QString folder = QDir(QStandardPaths::writableLocation(QStandardPaths::CacheLocation)).filePath("board");
    QDir().mkpath(folder);
    return folder;
}

QString workFile(const QString& what) {
    return QDir(workFolder()).filePath(what + "-" + QUuid::createUuid().toString(QUuid::WithoutBraces) + ".wav");
}

}  // namespace

Soundboard::Soundboard(BoardStore& store, VoiceEngine& engine, VoiceStore& voices, CloneLibrary* library,
                       QObject* parent)
    : QObject(parent), store_(store), engine_(engine), voices_(voices), library_(library) {
    pool_.setMaxThreadCount(1);
    connect(&store_, &BoardStore::entriesChanged, this, &Soundboard::decodeClips);
    connect(&engine_, &VoiceEngine::soundsPlayingChanged, this, &Soundboard::playingChanged);
    connect(&engine_, &VoiceEngine::soundFailed, this, &Soundboard::failed);
    decodeClips();
}

Soundboard::~Soundboard() {
    ++generation_;
    pool_.clear();
    pool_.waitForDone();
}

bool Soundboard::isPlaying() const { return engine_.soundsPlaying(); }

void Soundboard::decodeClips() {
    QSet<QUuid> current;
    for (const BoardEntry& entry : store_.entries()) {
        if (entry.kind != BoardEntry::Kind::clip) continue;
        current.insert(entry.id);
        const QString path = store_.clipPath(entry);
        auto known = clips_.constFind(entry.id);
        if ((known != clips_.cend() && known->path == path) || decoding_.contains(entry.id)) continue;
        decoding_.insert(entry.id);
        QPointer<Soundboard> self(this);
        pool_.start([self, id = entry.id, path] {
            Decoded decoded{path, nullptr, {}};
            try {
                decoded.sound = decodeSound(path.toStdString());
            } catch (const VoiceEngineError& error) {
                decoded.error = QString::fromStdString(error.errorDescription());
            }
            QMetaObject::invokeMethod(self, [self, id, decoded] {
                if (!self) return;
                self->decoding_.remove(id);
                self->clips_.insert(id, decoded);
                if (self->playWhenDecoded_.remove(id)) self->play(id);
            }, Qt::QueuedConnection);
        });
    }
    // Entries gone from the board give their sounds up (a sound playing keeps its own reference).
    for (auto it = clips_.begin(); it != clips_.end();) it = current.contains(it.key()) ? std::next(it) : clips_.erase(it);
    for (auto it = voiced_.begin(); it != voiced_.end();) it = current.contains(it.key()) ? std::next(it) : voiced_.erase(it);
}

bool Soundboard::play(const QUuid& id) {
    const auto entry = store_.entry(id);
    if (!entry) {
        emit failed(QStringLiteral("That sound isn't on the board any more."));
        return false;
    }
    const Levels levels{entry->levelDb, entry->duckDb};
    if (entry->kind == BoardEntry::Kind::speech) {
        return say(entry->text, Speaker{entry->voiceID, entry->cloneID});
    }
    const auto decoded = clips_.constFind(id);
    if (decoded == clips_.cend()) {
        // Still decoding (just added or loaded): it plays once it is ready.
        playWhenDecoded_.insert(id);
        decodeClips();
        return true;
    }
    if (!decoded->sound) {
        emit failed(QStringLiteral("“%1” can't be played: %2").arg(entry->name, decoded->error));
        return false;
    }
    if (!entry->inMyVoice) {
        playSound(decoded->sound, levels, false);
        return true;
    }
    const Voice voice = engine_.effectiveVoice();
    const auto voiced = voiced_.constFind(id);
    if (voiced != voiced_.cend() && voiced->voice == voice) playSound(voiced->sound, levels, false);
    else renderAndPlay(decoded->path, false, voice, levels, false, id);
    return true;
}

void Soundboard::stop() {
    ++generation_;
    playWhenDecoded_.clear();
    engine_.stopSounds();
    if (making_ > 0) {
        making_ = 0;
        setStatus({});
    }
}

bool Soundboard::say(const QString& text, const Speaker& speaker) {
    const QString words = text.simplified();
    if (words.isEmpty()) {
        emit failed(QStringLiteral("Type something to say first."));
        return false;
    }
    const Levels levels{0, BoardEntry{}.duckDb};
    if (!speaker.cloneID.isNull()) {
        sayWithClone(words, speaker.cloneID, levels);
        return true;
    }
    // An effect voice deleted since the sentence was added gives way to the selected voice.
    if (const auto voice = speaker.voiceID.isNull() ? std::nullopt : effectVoice(speaker.voiceID)) {
        sayWithEspeak(words, *voice, levels, false);
        return true;
    }
    // The voice selected now: a cloned voice speaks it itself.
    if (!engine_.clone().isEmpty() && !engine_.bypass() && library_) {
        if (const auto clone = library_->find(engine_.clone().name)) {
            sayWithClone(words, clone->id, levels);
            return true;
        }
    }
    sayWithEspeak(words, engine_.effectiveVoice(), levels, false);
    return true;
}

void Soundboard::previewVoice(const Voice& voice) {
    // The sentence is made once and kept in the cache folder.
    const QString sentence = QDir(workFolder()).filePath("preview-sentence.wav");
    if (QFile::exists(sentence)) {
        renderAndPlay(sentence, false, voice, {}, true);
        return;
    }
    sayWithEspeak(previewSentence(), voice, {}, true);
}

std::optional<Voice> Soundboard::effectVoice(const QUuid& id) const {
    if (id == Voice::natural().id) return Voice::natural();
    for (const Voice& voice : voices_.voices())
        if (voice.id == id) return voice;
    return std::nullopt;
}

void Soundboard::sayWithEspeak(const QString& text, const Voice& voice, Levels levels, bool preview) {
    const bool isPreviewSentence = preview && text == previewSentence();
    const QString spoken = isPreviewSentence ? QDir(workFolder()).filePath("preview-sentence.wav") : workFile("typed");
    auto* espeak = new QProcess(this);
    beginMaking(QStringLiteral("Making the sentence…"));
    const int generation = generation_;
    connect(espeak, &QProcess::finished, this, [=, this](int code, QProcess::ExitStatus status) {
        espeak->deleteLater();
        if (generation != generation_) {
            QFile::remove(spoken);
            return;
        }
        if (status != QProcess::NormalExit || code != 0 || !QFile::exists(spoken)) {
            endMaking();
            QFile::remove(spoken);
            emit failed(QStringLiteral("The sentence couldn't be spoken: espeak-ng failed."));
            return;
        }
        endMaking();
        renderAndPlay(spoken, !isPreviewSentence, voice, levels, preview);
    });
    connect(espeak, &QProcess::errorOccurred, this, [=, this](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart) return;
        espeak->deleteLater();
        endMaking();
        emit failed(QStringLiteral("Typed speech needs espeak-ng. Install it with: sudo apt install espeak-ng"));
    });
    espeak->start(QStringLiteral("espeak-ng"), {"-v", "en-us", "-w", spoken, "--", text});
}

void Soundboard::sayWithClone(const QString& text, const QUuid& cloneID, Levels levels) {
    VoiceCloner* cloner = engine_.cloner();
    const auto clone = library_ ? library_->voice(cloneID) : std::nullopt;
    if (!clone) {
        emit failed(QStringLiteral("The cloned voice for that sentence no longer exists."));
        return;
    }
    if (!cloner || !cloner->isInstalled()) {
        emit failed(VoiceCloner::notSetUpForConversion());
        return;
    }
    QSettings settings;
    const CloneModel model = Generation::model(settings);
    const QString blocker = Generation::blocker(model, *clone, true, text);
    if (!blocker.isEmpty()) {
        emit failed(blocker);
        return;
    }
    beginMaking(QStringLiteral("%1 is saying it…").arg(clone->name));
    const int generation = generation_;
    QPointer<Soundboard> self(this);
    cloner->generate(text, library_->target(cloneID), model, Generation::kGenerateSeed,
                     [self, generation, levels](const std::optional<Take>& take, const QString& error) {
                         if (!self || generation != self->generation_) return;
                         self->endMaking();
                         if (!take) return emit self->failed(error);
                         self->decodeAndPlay(take->file, levels);
                     });
}

void Soundboard::renderAndPlay(const QString& source, bool owned, const Voice& voice, Levels levels, bool preview,
                               const QUuid& entry) {
    beginMaking(QStringLiteral("Getting the sound ready…"));
    const int generation = generation_;
    QPointer<Soundboard> self(this);
    pool_.start([self, source, owned, voice, levels, preview, generation, entry] {
        const QString rendered = workFile("voiced");
        std::shared_ptr<const SoundBuffer> sound;
        QString error;
        try {
            renderOffline(source.toStdString(), rendered.toStdString(), voice);
            sound = decodeSound(rendered.toStdString());
        } catch (const VoiceEngineError& failure) {
            error = QString::fromStdString(failure.errorDescription());
        }
        QFile::remove(rendered);
        if (owned) QFile::remove(source);
        QMetaObject::invokeMethod(self, [self, sound, error, levels, preview, generation, entry, voice] {
            if (!self || generation != self->generation_) return;
            self->endMaking();
            if (!sound) return emit self->failed("The sound couldn't be played: " + error);
            if (!entry.isNull()) self->voiced_.insert(entry, {voice, sound});
            self->playSound(sound, levels, preview);
        }, Qt::QueuedConnection);
    });
}

void Soundboard::decodeAndPlay(const QString& path, Levels levels) {
    const int generation = generation_;
    QPointer<Soundboard> self(this);
    pool_.start([self, path, levels, generation] {
        std::shared_ptr<const SoundBuffer> sound;
        QString error;
        try {
            sound = decodeSound(path.toStdString());
        } catch (const VoiceEngineError& failure) {
            error = QString::fromStdString(failure.errorDescription());
        }
        QMetaObject::invokeMethod(self, [self, sound, error, levels, generation] {
            if (!self || generation != self->generation_) return;
            if (!sound) return emit self->failed("The sound couldn't be played: " + error);
            self->playSound(sound, levels, false);
        }, Qt::QueuedConnection);
    });
}

void Soundboard::playSound(std::shared_ptr<const SoundBuffer> sound, Levels levels, bool preview) {
    engine_.playSound(std::move(sound), {levels.levelDb, levels.duckDb}, preview);
}

void Soundboard::beginMaking(const QString& status) {
    ++making_;
    setStatus(status);
}

void Soundboard::endMaking() {
    if (making_ > 0 && --making_ == 0) setStatus({});
}

void Soundboard::setStatus(const QString& status) {
    if (status_ == status) return;
    status_ = status;
    emit statusChanged();
}

}  // namespace parlova
