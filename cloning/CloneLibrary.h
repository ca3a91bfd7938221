#pragma once
// The user's cloned voices: their samples (files copied into the library),
// transcripts, order and durations. Persisted as "library.json" in the library
// folder, rewritten whole (through a temporary file and a rename) after every
// change. A file that can't be read is moved aside, never overwritten.
//
// Main thread only. Interface for the cloned-voice page:
//   voices(), voice(id), selected(), selectedID()/setSelectedID()
//   createVoice(name), rename(id, name), deleteVoice(id)
//   addSample(voiceID, file, transcript) (throws VoiceEngineError), setTranscript,
//   moveToTop, removeSample, samplePath, target(voiceID)
//   signals: voicesChanged(), selectedIDChanged()
#include "cloning/ClonedVoice.h"

#include <QObject>
#include <QSettings>

#include <memory>
#include <optional>

namespace parlova {

class CloneLibrary : public QObject {
    Q_OBJECT
public:
    static constexpr const char* kSelectedKey = "selectedClonedVoice";
    static constexpr const char* kFileName = "library.json";

    // Loads the library from `directory` (the support folder's "ClonedVoices"
    // when empty); the selection is kept in `settings` (the application's
    // settings when null). The folder is created when missing; on a first
    // start the library holds one voice, "My Voice".
    explicit CloneLibrary(const QString& directory = {}, QSettings* settings = nullptr, QObject* parent = nullptr);
    ~CloneLibrary() override;

    static QString defaultDirectory();
    QString directory() const { return directory_; }
    // The file the unreadable library was moved to on loading, if any.
    QString keptAsidePath() const { return keptAside_; }
    // The last save's failure as a sentence, empty when it worked.
    QString saveError() const { return saveError_; }

    const QList<ClonedVoice>& voices() const { return voices_; }
    std::optional<ClonedVoice> voice(const QUuid& id) const;
    // The first voice with this name, case-insensitively.
    std::optional<ClonedVoice> find(const QString& name) const;

    std::optional<QUuid> selectedID() const { return selectedID_; }
    void setSelectedID(std::optional<QUuid> id);
    std::optional<ClonedVoice> selected() const;

    // A new voice without samples, appended, selected and saved.
    ClonedVoice createVoice(const QString& name);
    void rename(const QUuid& voiceID, const QString& name);
    // Removes the voice and its samples folder. The selection moves to the
    // voice now at the same place in the list (or the last one), none when empty.
    void deleteVoice(const QUuid& voiceID);

    // Copies the audio file into the voice's folder as "sample-<uuid>.<ext>",
    // measures its length and appends it. Throws VoiceEngineError (nothing is
    // added) when the file can't be read as audio or copied.
    VoiceSample addSample(const QUuid& voiceID, const QString& sourcePath, const QString& transcript = {});
    void setTranscript(const QString& transcript, const QUuid& sampleID, const QUuid& voiceID);
    void moveToTop(const QUuid& sampleID, const QUuid& voiceID);
    // Removes the sample and deletes its file.
    void removeSample(const QUuid& sampleID, const QUuid& voiceID);

    QString voiceFolder(const QUuid& voiceID) const;
    QString samplePath(const QUuid& voiceID, const VoiceSample& sample) const;
    // The voice's name and, for every sample, its absolute path and transcript.
    CloneTarget target(const QUuid& voiceID) const;

signals:
    void voicesChanged();
    void selectedIDChanged();

private:
    void load();
    void save();
    // Applies `change` to the voice with this id and saves; ignored when the
    // voice no longer exists.
    template <typename Change>
    void update(const QUuid& voiceID, Change change);

    QString directory_;
    QSettings* settings_;
    std::unique_ptr<QSettings> ownedSettings_;
    QList<ClonedVoice> voices_;
    std::optional<QUuid> selectedID_;
    QString keptAside_;
    QString saveError_;
    bool mayWrite_ = true;
};

}  // namespace parlova
