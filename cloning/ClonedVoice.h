#pragma once
// The value records of the clone library: a recorded sample, a cloned voice
// (a name and its samples in the order the models hear them) and what an
// operation hands the worker for one voice.
#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

namespace parlova {

struct VoiceSample {
    QUuid id;
    QString file;        // the audio file's name inside the voice's samples folder
    QString transcript;  // the words spoken (the best model needs them)
    double duration = 0; // seconds
    QDateTime added;

    bool operator==(const VoiceSample&) const = default;

    QJsonObject toJson() const;
    // Missing optional keys take their defaults (a fresh id, "", 0, now);
    // nothing when "file" is missing or not text.
    static std::optional<VoiceSample> fromJson(const QJsonObject& object);
};

struct ClonedVoice {
    QUuid id;
    QString name;
    QList<VoiceSample> samples;  // first samples first: the models hear them first

    bool operator==(const ClonedVoice&) const = default;

    double totalSeconds() const;
    const VoiceSample* sample(const QUuid& sampleID) const;

    QJsonObject toJson() const;
    // Nothing when "id", "name" or "samples" is missing or any sample is unreadable.
    static std::optional<ClonedVoice> fromJson(const QJsonObject& object);
};

// One reference the worker listens to.
struct CloneReference {
    QString path;  // absolute file path
    QString transcript;
    bool operator==(const CloneReference&) const = default;
};

struct CloneTarget {
    QString name;
    QList<CloneReference> samples;
    bool operator==(const CloneTarget&) const = default;
    bool isEmpty() const { return name.isEmpty() && samples.isEmpty(); }
};

}  // namespace parlova
