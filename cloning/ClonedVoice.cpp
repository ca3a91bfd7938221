#include "cloning/ClonedVoice.h"

#include <QJsonArray>

namespace parlova {

QJsonObject VoiceSample::toJson() const {
    return QJsonObject{{"id", id.toString(QUuid::WithoutBraces)},
                       {"file", file},
                       {"transcript", transcript},
                       {"duration", duration},
                       {"added", added.toUTC().toString(Qt::ISODateWithMs)}};
}

std::optional<VoiceSample> VoiceSample::fromJson(const QJsonObject& object) {
    const QJsonValue file = object.value("file");
    if (!file.isString()) return std::nullopt;
    VoiceSample sample;
    sample.file = file.toString();
    sample.id = QUuid::fromString(object.value("id").toString());
    if (sample.id.isNull()) sample.id = QUuid::createUuid();
    sample.transcript = object.value("transcript").toString();
    sample.duration = object.value("duration").toDouble(0);
    sample.added = QDateTime::fromString(object.value("added").toString(), Qt::ISODateWithMs);
    if (!sample.added.isValid()) sample.added = QDateTime::currentDateTimeUtc();
    return sample;
}

double ClonedVoice::totalSeconds() const {
    double total = 0;
    for (const auto& s : samples) total += s.duration;
    return total;
}

const VoiceSample* ClonedVoice::sample(const QUuid& sampleID) const {
    for (const auto& s : samples)
        if (s.id == sampleID) return &s;
    return nullptr;
}

QJsonObject ClonedVoice::toJson() const {
    QJsonArray list;
    for (const auto& s : samples) list.append(s.toJson());
    return QJsonObject{{"id", id.toString(QUuid::WithoutBraces)}, {"name", name}, {"samples", list}};
}

std::optional<ClonedVoice> ClonedVoice::fromJson(const QJsonObject& object) {
    const QUuid id = QUuid::fromString(object.value("id").toString());
    const QJsonValue name = object.value("name");
    const QJsonValue samples = object.value("samples");
    if (id.isNull() || !name.isString() || !samples.isArray()) return std::nullopt;
    ClonedVoice voice{id, name.toString(), {}};
    for (const auto& value : samples.toArray()) {
        auto sample = VoiceSample::fromJson(value.toObject());
        if (!value.isObject() || !sample) return std::nullopt;
        voice.samples.append(*sample);
    }
    return voice;
}

}  // namespace parlova
