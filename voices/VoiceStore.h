#pragma once
// The user's ordered list of voices, kept in the settings under "voices.v5" and
// rewritten whole after every change. Loading writes nothing.
#include "voices/Voice.h"

#include <QObject>
#include <QSettings>

#include <memory>
#include <vector>

namespace parlova {

class VoiceStore : public QObject {
    Q_OBJECT
public:
    static constexpr const char* kSettingsKey = "voices.v5";

    // Uses the given settings, or the application's standard settings when null.
    explicit VoiceStore(QSettings* settings = nullptr, QObject* parent = nullptr);
    ~VoiceStore() override;

    const std::vector<Voice>& voices() const { return voices_; }
    // Replaces the list (as an edit of any field does) and saves.
    void setVoices(std::vector<Voice> voices);

    // Inserts an editable copy right after its source (or at the end) and saves.
    Voice duplicate(const Voice& voice);
    // Brings a starting voice back to its factory values, keeping its id.
    void reset(const Voice& voice);
    // Removes a user voice; starting voices are never removed.
    void remove(const Voice& voice);

    // The first voice whose name matches, case-insensitively.
    std::optional<Voice> find(const QString& name) const;

signals:
    void voicesChanged();

private:
    void load();
    void save();

    QSettings* settings_;
    std::unique_ptr<QSettings> ownedSettings_;
    std::vector<Voice> voices_;
};

}  // namespace parlova
