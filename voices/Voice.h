#pragma once
// One preset of effect settings. Value type: copied on assignment, equal only
// when every field (id included) is equal.
#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <cstddef>
#include <optional>
#include <vector>

namespace parlova {

struct Voice {
    QUuid id;
    QString name;
    QString emoji;
    std::optional<QString> presetKey;  // set on starting voices (they can be reset, not deleted)
    float pitch = 0;         // cents
    float formant = 0;       // semitones
    float targetPitch = 0;   // Hz, 0 = auto pitch off
    float vibratoRate = 0;   // Hz
    float vibratoDepth = 0;  // cents
    float tremoloRate = 0;   // Hz
    float tremoloDepth = 0;  // fraction of full volume
    float lowCut = 0;        // Hz, <= 25 bypasses the high-pass
    float highCut = 0;       // Hz, >= 19000 bypasses the low-pass
    float body = 0;          // dB, exactly 0 bypasses
    float presence = 0;      // dB, exactly 0 bypasses
    float reverb = 0;        // wet/dry percent
    float gain = 0;          // dB
    float grain = 0;         // texture amount, 0 = off

    bool operator==(const Voice&) const = default;

    // The starting voices, built once per run with fresh ids: Old Lady, Middle-Aged Man.
    static const std::vector<Voice>& builtIns();
    // The neutral pass-through voice; never part of the stored list.
    static const Voice& natural();
    // A copy of the starting voice with this preset key, if any.
    static std::optional<Voice> factory(const QString& presetKey);

    // JSON object with keys in field order; presetKey only when present.
    QByteArray toJson() const;
    // Fails (nullopt) when a required key is missing or has the wrong type.
    static std::optional<Voice> fromJson(const QJsonObject& object);

    // Names and pointers of the fourteen float fields, in declaration order.
    struct FloatField {
        const char* key;
        float Voice::*member;
    };
    static const std::vector<FloatField>& floatFields();
};

// Encodes a list as a compact JSON array; decodes it, failing as a whole when
// any element fails.
QByteArray encodeVoices(const std::vector<Voice>& voices);
std::optional<std::vector<Voice>> decodeVoices(const QByteArray& data);

// Shortest text that reads back as the same 32-bit float ("0.15", "-400", "5.5").
QByteArray formatFloat(float value);

}  // namespace parlova

template <>
struct std::hash<parlova::Voice> {
    size_t operator()(const parlova::Voice& voice) const noexcept;
};
