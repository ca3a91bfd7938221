#pragma once
// The user's soundboard: its entries in order, persisted as "board.json" in
// the board's folder with the clips' copies beside it, rewritten whole
// (through a temporary file and a rename) after every change. A file that
// can't be read is moved aside, never overwritten, and the board starts empty.
// The window and "parlova-cli board" both edit it: the store notices when
// another process rewrote the file and reloads.
//
// Main thread only.
#include "board/BoardEntry.h"

#include <QFileSystemWatcher>
#include <QList>
#include <QObject>

#include <optional>

namespace parlova {

class BoardStore : public QObject {
    Q_OBJECT
public:
    static constexpr const char* kFileName = "board.json";
    static constexpr int kDefaultKeys = 9;  // entries added get the first free key of "1".."9"

    // Loads the board from `directory` (defaultDirectory() when empty),
    // creating the folder when missing.
    explicit BoardStore(const QString& directory = {}, QObject* parent = nullptr);
    ~BoardStore() override;

    // The support folder's "Board".
    static QString defaultDirectory();
    QString directory() const { return directory_; }
    // The file the unreadable board was moved to on loading, if any.
    QString keptAsidePath() const { return keptAside_; }
    // The last save's failure as a sentence, empty when it worked.
    QString saveError() const { return saveError_; }

    const QList<BoardEntry>& entries() const { return entries_; }
    std::optional<BoardEntry> entry(const QUuid& id) const;
    // The first entry with this name, case-insensitively.
    std::optional<BoardEntry> find(const QString& name) const;
    // Where a clip entry's copy lives.
    QString clipPath(const BoardEntry& entry) const;

    // Copies an audio file into the folder and appends it (its name: `name`,
    // else the file's base name). Throws VoiceEngineError, changing nothing,
    // when the file can't be decoded or copied.
    BoardEntry addClip(const QString& sourcePath, const QString& name = {});
    // Appends a typed sentence said by an effect voice or a cloned voice
    // (null ids: the selected voice); its name defaults to the text's start.
    // Throws VoiceEngineError, changing nothing, when the text is blank.
    BoardEntry addSpeech(const QString& text, const QUuid& voiceID = {}, const QUuid& cloneID = {},
                         const QString& name = {});
    // Replaces the entry with the same id (name, level, ducking, key, text...).
    // Names are trimmed; a blank one keeps the entry's name.
    void update(const BoardEntry& entry);
    void rename(const QUuid& id, const QString& name);
    // Removes the entry and deletes its clip's copy.
    void remove(const QUuid& id);
    // Moves the entry to `index` (clamped).
    void move(const QUuid& id, int index);

    // Reads the file again (done by itself when another process changes it).
    void reload();

signals:
    void entriesChanged();

private:
    void load();
    void save();
    // Saves and tells the views.
    void changed();
    // Watches the folder and the file; a rename that replaced the file drops its watch.
    void watch();
    // The folder or the file changed: reloads when the file holds something
    // other than what this store last read or wrote.
    void touched();
    // `wanted` when another entry (not `except`) doesn't carry it already, else with " 2", " 3"...
    QString uniqueName(const QString& wanted, const QUuid& except = {}) const;

    QString directory_;
    QString keptAside_;
    QString saveError_;
    QList<BoardEntry> entries_;
    QFileSystemWatcher watcher_;
    QByteArray known_;      // the file's bytes as last read or written
    bool mayWrite_ = true;  // false while an unreadable file couldn't be moved aside
};

}  // namespace parlova
