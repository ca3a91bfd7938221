#include "voices/Voice.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <charconv>
#include <functional>

namespace parlova {

namespace {

Voice makeVoice(const QString& name, const QString& emoji, std::optional<QString> key,
                std::initializer_list<float> values) {
    Voice v;
    v.id = QUuid::createUuid();
    v.name = name;
    v.emoji = emoji;
    v.presetKey = std::move(key);
    auto it = values.begin();
    for (const auto& field : Voice::floatFields()) v.*(field.member) = *it++;
    return v;
}

QByteArray jsonString(const QString& text) {
    // Let Qt do the escaping of a single string value.
    QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

}  // namespace

const std::vector<Voice::FloatField>& Voice::floatFields() {
    static const std::vector<FloatField> fields = {
        {"pitch", &Voice::pitch},           {"formant", &Voice::formant},
        {"targetPitch", &Voice::targetPitch}, {"vibratoRate", &Voice::vibratoRate},
        {"vibratoDepth", &Voice::vibratoDepth}, {"tremoloRate", &Voice::tremoloRate},
        {"tremoloDepth", &Voice::tremoloDepth}, {"lowCut", &Voice::lowCut},
        {"highCut", &Voice::highCut},       {"body", &Voice::body},
        {"presence", &Voice::presence},     {"reverb", &Voice::reverb},
        {"gain", &Voice::gain},             {"grain", &Voice::grain},
    };
    return fields;
}

const std::vector<Voice>& Voice::builtIns() {
    // The odd-looking values (650 cents, 0.12) are deliberate tunings.
    static const std::vector<Voice> voices = {
        makeVoice("Old Lady", QString::fromUtf8("\U0001F475"), QString("oldLady"),
                  {650, 3.5f, 0, 5.5f, 30, 5.5f, 0.12f, 100, 9000, -1, 2, 5, 6, 0.15f}),
        makeVoice("Middle-Aged Man", QString::fromUtf8("\U0001F468"), QString("middleAgedMan"),
                  {-400, -0.5f, 108, 4, 0, 5, 0, 60, 9000, 4, -1, 6, 1, 0}),
    };
    return voices;
}

const Voice& Voice::natural() {
    static const Voice voice = makeVoice("Natural", QString::fromUtf8("\U0001F642"), std::nullopt,
                                         {0, 0, 0, 5, 0, 5, 0, 20, 20000, 0, 0, 0, 0, 0});
    return voice;
}

std::optional<Voice> Voice::factory(const QString& presetKey) {
    for (const auto& v : builtIns())
        if (v.presetKey && *v.presetKey == presetKey) return v;
    return std::nullopt;
}

QByteArray formatFloat(float value) {
    if (value == 0) return "0";
    char buffer[32];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return QByteArray(buffer, static_cast<int>(result.ptr - buffer));
}

QByteArray Voice::toJson() const {
    QByteArray out = "{\"id\":" + jsonString(id.toString(QUuid::WithoutBraces).toUpper()) +
                     ",\"name\":" + jsonString(name) + ",\"emoji\":" + jsonString(emoji);
    if (presetKey) out += ",\"presetKey\":" + jsonString(*presetKey);
    for (const auto& field : floatFields())
        out += ",\"" + QByteArray(field.key) + "\":" + formatFloat(this->*(field.member));
    out += "}";
    return out;
}

std::optional<Voice> Voice::fromJson(const QJsonObject& object) {
    Voice v;
    const QJsonValue id = object.value("id"), name = object.value("name"), emoji = object.value("emoji");
    if (!id.isString() || !name.isString() || !emoji.isString()) return std::nullopt;
    v.id = QUuid::fromString(id.toString());
    if (v.id.isNull()) return std::nullopt;
    v.name = name.toString();
    v.emoji = emoji.toString();
    const QJsonValue key = object.value("presetKey");
    if (key.isString())
        v.presetKey = key.toString();
    else if (!key.isUndefined() && !key.isNull())
        return std::nullopt;
    for (const auto& field : floatFields()) {
        const QJsonValue value = object.value(field.key);
        if (!value.isDouble()) return std::nullopt;
        v.*(field.member) = static_cast<float>(value.toDouble());
    }
    return v;
}

QByteArray encodeVoices(const std::vector<Voice>& voices) {
    QByteArray out = "[";
    for (size_t i = 0; i < voices.size(); ++i) {
        if (i) out += ",";
        out += voices[i].toJson();
    }
    out += "]";
    return out;
}

std::optional<std::vector<Voice>> decodeVoices(const QByteArray& data) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray()) return std::nullopt;
    std::vector<Voice> voices;
    for (const QJsonValue& element : doc.array()) {
        if (!element.isObject()) return std::nullopt;
        auto voice = Voice::fromJson(element.toObject());
        if (!voice) return std::nullopt;
        voices.push_back(std::move(*voice));
    }
    return voices;
}

}  // namespace parlova

size_t std::hash<parlova::Voice>::operator()(const parlova::Voice& v) const noexcept {
    size_t seed = qHash(v.id);
    auto mix = [&seed](size_t h) { seed ^= h + 0x9e3779b97f4a7c15ull + (seed << 6) + (seed >> 2); };
    mix(qHash(v.name));
    mix(qHash(v.emoji));
    mix(v.presetKey ? qHash(*v.presetKey) + 1 : 0);
    for (const auto& field : parlova::Voice::floatFields()) {
        const float value = v.*(field.member);
        mix(std::hash<float>{}(value == 0 ? 0.0f : value));  // -0 hashes like 0
    }
    return seed;
}
