#include "cloning/CloneLibrary.h"

#include "common/KeptFiles.h"
#include "common/VoiceEngineError.h"
#include "devices/LegacyMigration.h"
#include "media/AudioFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

namespace parlova {

CloneLibrary::CloneLibrary(const QString& directory, QSettings* settings, QObject* parent)
    : QObject(parent), directory_(directory.isEmpty() ? defaultDirectory() : directory), settings_(settings) {
    if (!settings_) {
        ownedSettings_ = std::make_unique<QSettings>();
        settings_ = ownedSettings_.get();
    }
    load();
}

CloneLibrary::~CloneLibrary() = default;

QString CloneLibrary::defaultDirectory() {
    return QDir(LegacyMigration::supportDirectory()).filePath("ClonedVoices");
}

void CloneLibrary::load() {
    QDir().mkpath(directory_);
    const QString path = QDir(directory_).filePath(kFileName);
    QFile file(path);
    if (!file.exists()) {
        voices_.append(ClonedVoice{QUuid::createUuid(), "My Voice", {}});
        save();
    } else {
        bool readable = file.open(QIODevice::ReadOnly);
        QJsonParseError error{};
        const QJsonDocument doc = readable ? QJsonDocument::fromJson(file.readAll(), &error) : QJsonDocument();
        file.close();
        readable = readable && error.error == QJsonParseError::NoError && doc.isArray();
        QList<ClonedVoice> loaded;
        for (const auto& value : doc.array()) {
            auto voice = ClonedVoice::fromJson(value.toObject());
            if (!value.isObject() || !voice) {
                readable = false;
                break;
            }
            loaded.append(*voice);
        }
        if (readable) {
            voices_ = loaded;
        } else {
            // Keep the damaged file for the user.
            keptAside_ = keptFiles::moveAside(path, "library-unreadable");
            if (!keptAside_.isEmpty()) {
                save();  // an empty library from now on, not a first start again
            } else {
                mayWrite_ = false;
            }
        }
    }
    const QUuid stored = QUuid::fromString(settings_->value(kSelectedKey).toString());
    if (!stored.isNull() && voice(stored)) selectedID_ = stored;
    else if (!voices_.isEmpty()) selectedID_ = voices_.first().id;
}

void CloneLibrary::save() {
    saveError_.clear();
    const QString path = QDir(directory_).filePath(kFileName);
    if (!mayWrite_) {
        // An unreadable file that could not be moved aside is never replaced.
        saveError_ = "Couldn't save the cloned voices: " + path +
                     " can't be read and couldn't be moved aside. Move it away and start again.";
        return;
    }
    QJsonArray list;
    for (const auto& v : voices_) list.append(v.toJson());
    if (!keptFiles::writeWhole(path, QJsonDocument(list).toJson())) {
        saveError_ = "Couldn't save the cloned voices in " + directory_ +
                     ". Check that the folder can be written to.";
    }
}

std::optional<ClonedVoice> CloneLibrary::voice(const QUuid& id) const {
    for (const auto& v : voices_)
        if (v.id == id) return v;
    return std::nullopt;
}

std::optional<ClonedVoice> CloneLibrary::find(const QString& name) const {
    for (const auto& v : voices_)
        if (v.name.compare(name, Qt::CaseInsensitive) == 0) return v;
    return std::nullopt;
}

void CloneLibrary::setSelectedID(std::optional<QUuid> id) {
    if (id == selectedID_) return;
    selectedID_ = id;
    if (id) settings_->setValue(kSelectedKey, id->toString(QUuid::WithoutBraces));
    else settings_->remove(kSelectedKey);
    emit selectedIDChanged();
}

std::optional<ClonedVoice> CloneLibrary::selected() const {
    return selectedID_ ? voice(*selectedID_) : std::nullopt;
}

template <typename Change>
void CloneLibrary::update(const QUuid& voiceID, Change change) {
    for (auto& v : voices_) {
        if (v.id != voiceID) continue;
        change(v);
        save();
        emit voicesChanged();
        return;
    }
}

ClonedVoice CloneLibrary::createVoice(const QString& name) {
    ClonedVoice voice{QUuid::createUuid(), name, {}};
    voices_.append(voice);
    save();
    emit voicesChanged();
    setSelectedID(voice.id);
    return voice;
}

void CloneLibrary::rename(const QUuid& voiceID, const QString& name) {
    update(voiceID, [&](ClonedVoice& v) { v.name = name; });
}

void CloneLibrary::deleteVoice(const QUuid& voiceID) {
    const auto it = std::find_if(voices_.begin(), voices_.end(), [&](const auto& v) { return v.id == voiceID; });
    if (it == voices_.end()) return;
    const qsizetype index = it - voices_.begin();
    voices_.erase(it);
    QDir(voiceFolder(voiceID)).removeRecursively();
    save();
    emit voicesChanged();
    if (selectedID_ == voiceID) {
        if (voices_.isEmpty()) setSelectedID(std::nullopt);
        else setSelectedID(voices_[std::min(index, voices_.size() - 1)].id);
    }
}

QString CloneLibrary::voiceFolder(const QUuid& voiceID) const {
    return QDir(directory_).filePath(voiceID.toString(QUuid::WithoutBraces));
}

QString CloneLibrary::samplePath(const QUuid& voiceID, const VoiceSample& sample) const {
    return QDir(voiceFolder(voiceID)).filePath(sample.file);
}

VoiceSample CloneLibrary::addSample(const QUuid& voiceID, const QString& sourcePath, const QString& transcript) {
    if (!voice(voiceID)) throw VoiceEngineError("That cloned voice no longer exists.");
    // Reading the whole file first both measures it and refuses a file that
    // is not audio before anything is copied.
    const auto reader = AudioFileReader::open(sourcePath.toStdString());
    const QString suffix = QFileInfo(sourcePath).suffix();
    VoiceSample sample;
    sample.id = QUuid::createUuid();
    sample.file = "sample-" + QUuid::createUuid().toString(QUuid::WithoutBraces) + "." +
                  (suffix.isEmpty() ? QStringLiteral("caf") : suffix);
    sample.transcript = transcript;
    sample.duration = double(reader->frameLength()) / reader->format().sampleRate;
    sample.added = QDateTime::currentDateTimeUtc();
    const QString folder = voiceFolder(voiceID);
    if (!QDir().mkpath(folder) || !QFile::copy(sourcePath, QDir(folder).filePath(sample.file)))
        throw VoiceEngineError("Couldn't copy " + QFileInfo(sourcePath).fileName().toStdString() + " into " +
                               folder.toStdString() + ". Check that the folder can be written to.");
    update(voiceID, [&](ClonedVoice& v) { v.samples.append(sample); });
    return sample;
}

void CloneLibrary::setTranscript(const QString& transcript, const QUuid& sampleID, const QUuid& voiceID) {
    update(voiceID, [&](ClonedVoice& v) {
        for (auto& s : v.samples)
            if (s.id == sampleID) s.transcript = transcript;
    });
}

void CloneLibrary::moveToTop(const QUuid& sampleID, const QUuid& voiceID) {
    update(voiceID, [&](ClonedVoice& v) {
        for (qsizetype i = 0; i < v.samples.size(); ++i)
            if (v.samples[i].id == sampleID) v.samples.move(i, 0);
    });
}

void CloneLibrary::removeSample(const QUuid& sampleID, const QUuid& voiceID) {
    update(voiceID, [&](ClonedVoice& v) {
        for (qsizetype i = 0; i < v.samples.size(); ++i) {
            if (v.samples[i].id != sampleID) continue;
            QFile::remove(samplePath(voiceID, v.samples[i]));
            v.samples.removeAt(i);
            return;
        }
    });
}

CloneTarget CloneLibrary::target(const QUuid& voiceID) const {
    CloneTarget target;
    const auto v = voice(voiceID);
    if (!v) return target;
    target.name = v->name;
    for (const auto& s : v->samples)
        target.samples.append({QFileInfo(samplePath(voiceID, s)).absoluteFilePath(), s.transcript});
    return target;
}

}  // namespace parlova
