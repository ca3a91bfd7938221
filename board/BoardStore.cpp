#include "board/BoardStore.h"

#include "common/KeptFiles.h"
#include "common/VoiceEngineError.h"
#include "devices/LegacyMigration.h"
#include "engine/SoundBuffer.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

#include <algorithm>

namespace parlova {

namespace {

constexpr qsizetype kSpeechNameLength = 24;

// The start of a typed sentence, cut at a word where one ends near the limit.
QString speechName(const QString& text) {
    const QString simple = text.simplified();
    if (simple.size() <= kSpeechNameLength) return simple;
    qsizetype cut = simple.lastIndexOf(QLatin1Char(' '), kSpeechNameLength);
    if (cut < kSpeechNameLength / 2) cut = kSpeechNameLength;
    return simple.left(cut).trimmed() + QStringLiteral("\u2026");
}

// The first of "1".."9" no entry plays on; empty when all are taken.
QString firstFreeKey(const QList<BoardEntry>& entries) {
    for (int k = 1; k <= BoardStore::kDefaultKeys; ++k) {
        const QString key = QString::number(k);
        if (std::none_of(entries.begin(), entries.end(), [&](const BoardEntry& e) { return e.key == key; }))
            return key;
    }
    return {};
}

QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

}  // namespace

BoardStore::BoardStore(const QString& directory, QObject* parent)
    : QObject(parent), directory_(directory.isEmpty() ? defaultDirectory() : directory) {
    load();
    connect(&watcher_, &QFileSystemWatcher::fileChanged, this, &BoardStore::touched);
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, &BoardStore::touched);
    watch();
}

BoardStore::~BoardStore() = default;

QString BoardStore::defaultDirectory() { return QDir(LegacyMigration::supportDirectory()).filePath("Board"); }

void BoardStore::load() {
    QDir().mkpath(directory_);
    const QString path = QDir(directory_).filePath(kFileName);
    entries_.clear();
    known_.clear();
    mayWrite_ = true;
    // No file yet: an empty board, and nothing written until the first change.
    if (!QFileInfo::exists(path)) return;
    QFile file(path);
    bool readable = file.open(QIODevice::ReadOnly);
    const QByteArray bytes = readable ? file.readAll() : QByteArray();
    file.close();
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    readable = readable && error.error == QJsonParseError::NoError && doc.isObject() &&
               doc.object().value("entries").isArray();
    QList<BoardEntry> loaded;
    for (const auto& value : doc.object().value("entries").toArray()) {
        auto entry = value.isObject() ? BoardEntry::fromJson(value.toObject()) : std::nullopt;
        if (!entry) {
            readable = false;
            break;
        }
        entry->name = entry->name.trimmed();
        if (entry->name.isEmpty())
            entry->name = entry->kind == BoardEntry::Kind::speech ? speechName(entry->text) : QStringLiteral("Sound");
        loaded.append(*entry);
    }
    if (readable) {
        entries_ = loaded;
        known_ = bytes;
        return;
    }
    // Keep the damaged file for the user.
    keptAside_ = keptFiles::moveAside(path, "board-unreadable");
    if (keptAside_.isEmpty()) mayWrite_ = false;
}

void BoardStore::save() {
    saveError_.clear();
    const QString path = QDir(directory_).filePath(kFileName);
    if (!mayWrite_) {
        // An unreadable file that could not be moved aside is never replaced.
        saveError_ = "Couldn't save the soundboard: " + path +
                     " can't be read and couldn't be moved aside. Move it away and start again.";
        return;
    }
    QJsonArray list;
    for (const auto& entry : entries_) list.append(entry.toJson());
    const QByteArray bytes = QJsonDocument(QJsonObject{{"entries", list}}).toJson();
    if (!keptFiles::writeWhole(path, bytes)) {
        saveError_ = "Couldn't save the soundboard in " + directory_ + ". Check that the folder can be written to.";
        return;
    }
    known_ = bytes;
    watch();
}

void BoardStore::changed() {
    save();
    emit entriesChanged();
}

void BoardStore::watch() {
    if (!watcher_.directories().contains(directory_)) watcher_.addPath(directory_);
    const QString path = QDir(directory_).filePath(kFileName);
    if (QFileInfo::exists(path) && !watcher_.files().contains(path)) watcher_.addPath(path);
}

void BoardStore::touched() {
    watch();
    // Saves of this store, clips copied in and temporary files all pass here:
    // only a file that now says something else is read again.
    const QString path = QDir(directory_).filePath(kFileName);
    if (readAll(path) != known_) reload();
}

void BoardStore::reload() {
    const QList<BoardEntry> before = entries_;
    load();
    watch();
    if (entries_ != before) emit entriesChanged();
}

std::optional<BoardEntry> BoardStore::entry(const QUuid& id) const {
    for (const auto& e : entries_)
        if (e.id == id) return e;
    return std::nullopt;
}

std::optional<BoardEntry> BoardStore::find(const QString& name) const {
    const QString wanted = name.trimmed();
    for (const auto& e : entries_)
        if (e.name.compare(wanted, Qt::CaseInsensitive) == 0) return e;
    return std::nullopt;
}

QString BoardStore::clipPath(const BoardEntry& entry) const {
    if (entry.kind != BoardEntry::Kind::clip || entry.clipFile.isEmpty()) return {};
    return QDir(directory_).filePath(entry.clipFile);
}

QString BoardStore::uniqueName(const QString& wanted, const QUuid& except) const {
    const auto taken = [&](const QString& name) {
        for (const auto& e : entries_)
            if (e.id != except && e.name.compare(name, Qt::CaseInsensitive) == 0) return true;
        return false;
    };
    QString name = wanted;
    for (int n = 2; taken(name); ++n) name = wanted + QLatin1Char(' ') + QString::number(n);
    return name;
}

BoardEntry BoardStore::addClip(const QString& sourcePath, const QString& name) {
    // Decoding the whole file both measures it and refuses a file the board
    // couldn't play, before anything is copied.
    const auto sound = decodeSound(sourcePath.toStdString());
    const QFileInfo source(sourcePath);
    BoardEntry entry;
    entry.id = QUuid::createUuid();
    entry.kind = BoardEntry::Kind::clip;
    const QString suffix = source.suffix().toLower();
    entry.clipFile = "clip-" + QUuid::createUuid().toString(QUuid::WithoutBraces) +
                     (suffix.isEmpty() ? QString() : QLatin1Char('.') + suffix);
    entry.clipSeconds = static_cast<double>(sound->frames()) / kChainSampleRate;
    const QString given = name.trimmed();
    entry.name = uniqueName(given.isEmpty() ? source.completeBaseName().trimmed() : given);
    if (entry.name.isEmpty()) entry.name = uniqueName(QStringLiteral("Sound"));
    entry.key = firstFreeKey(entries_);
    if (!QDir().mkpath(directory_) || !QFile::copy(sourcePath, clipPath(entry)))
        throw VoiceEngineError("Couldn't copy " + source.fileName().toStdString() + " into " +
                               directory_.toStdString() + ". Check that the folder can be written to.");
    entries_.append(entry);
    changed();
    return entry;
}

BoardEntry BoardStore::addSpeech(const QString& text, const QUuid& voiceID, const QUuid& cloneID,
                                 const QString& name) {
    const QString said = text.trimmed();
    if (said.isEmpty()) throw VoiceEngineError("Type something for the board to say.");
    BoardEntry entry;
    entry.id = QUuid::createUuid();
    entry.kind = BoardEntry::Kind::speech;
    entry.text = said;
    entry.voiceID = voiceID;
    entry.cloneID = cloneID;
    const QString given = name.trimmed();
    entry.name = uniqueName(given.isEmpty() ? speechName(said) : given);
    entry.key = firstFreeKey(entries_);
    entries_.append(entry);
    changed();
    return entry;
}

void BoardStore::update(const BoardEntry& entry) {
    for (auto& e : entries_) {
        if (e.id != entry.id) continue;
        const QString name = entry.name.trimmed();
        const QString kept = e.name;
        e = entry;
        e.name = name.isEmpty() ? kept : name;
        changed();
        return;
    }
}

void BoardStore::rename(const QUuid& id, const QString& name) {
    if (auto e = entry(id)) {
        e->name = name;
        update(*e);
    }
}

void BoardStore::remove(const QUuid& id) {
    for (qsizetype i = 0; i < entries_.size(); ++i) {
        if (entries_[i].id != id) continue;
        if (const QString path = clipPath(entries_[i]); !path.isEmpty()) QFile::remove(path);
        entries_.removeAt(i);
        changed();
        return;
    }
}

void BoardStore::move(const QUuid& id, int index) {
    for (qsizetype i = 0; i < entries_.size(); ++i) {
        if (entries_[i].id != id) continue;
        const qsizetype to = std::clamp<qsizetype>(index, 0, entries_.size() - 1);
        if (to == i) return;
        entries_.move(i, to);
        changed();
        return;
    }
}

}  // namespace parlova
