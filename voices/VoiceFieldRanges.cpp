#include "voices/VoiceFieldRanges.h"

#include <cmath>

namespace parlova {

const std::vector<VoiceFieldRange>& voiceFieldRanges() {
    // Pitch spans an octave each way; formants beyond ±8 st stop sounding
    // like a voice; the tone bands and gain stay where the chain cannot clip
    // a normal speaking level into silence or noise.
    static const std::vector<VoiceFieldRange> fields = {
        {"pitch", "Pitch", "Pitch & formants", "cents", -1200, 1200, 10, 0, &Voice::pitch},
        {"formant", "Formant", "Pitch & formants", "st", -8, 8, 0.1f, 1, &Voice::formant},
        {"targetPitch", "Target pitch", "Pitch & formants", "Hz", 70, 320, 1, 0, &Voice::targetPitch, true},
        {"vibratoRate", "Vibrato speed", "Movement", "Hz", 1, 10, 0.1f, 1, &Voice::vibratoRate},
        {"vibratoDepth", "Vibrato depth", "Movement", "cents", 0, 100, 1, 0, &Voice::vibratoDepth},
        {"tremoloRate", "Tremble speed", "Movement", "Hz", 1, 12, 0.1f, 1, &Voice::tremoloRate},
        {"tremoloDepth", "Tremble depth", "Movement", "", 0, 0.6f, 0.01f, 2, &Voice::tremoloDepth},
        {"grain", "Grain / rasp", "Texture", "", 0, 1, 0.01f, 2, &Voice::grain},
        {"lowCut", "Low cut", "Tone", "Hz", 20, 600, 5, 0, &Voice::lowCut},
        {"highCut", "High cut", "Tone", "Hz", 2000, 20000, 100, 0, &Voice::highCut},
        {"body", "Chest / body", "Tone", "dB", -12, 12, 0.5f, 1, &Voice::body},
        {"presence", "Nasal / presence", "Tone", "dB", -12, 12, 0.5f, 1, &Voice::presence},
        {"reverb", "Reverb", "Space & level", "%", 0, 100, 1, 0, &Voice::reverb},
        {"gain", "Output gain", "Space & level", "dB", -24, 12, 0.5f, 1, &Voice::gain},
    };
    return fields;
}

const VoiceFieldRange* findVoiceField(const QString& key) {
    for (const auto& field : voiceFieldRanges())
        if (key.compare(QLatin1String(field.key), Qt::CaseInsensitive) == 0) return &field;
    return nullptr;
}

namespace {

QString number(float value, int decimals) {
    return QString::number(double(value), 'f', decimals);
}

QString withUnit(const VoiceFieldRange& field, const QString& text) {
    return *field.unit ? text + ' ' + QLatin1String(field.unit) : text;
}

}  // namespace

std::optional<QString> checkVoiceFieldValue(const VoiceFieldRange& field, float value) {
    if (field.zeroMeansOff && value == 0) return std::nullopt;
    if (std::isfinite(value) && value >= field.minimum && value <= field.maximum) return std::nullopt;
    QString range = withUnit(field, QString("%1 and %2").arg(number(field.minimum, field.decimals),
                                                            number(field.maximum, field.decimals)));
    QString sentence = QString("%1 must be between %2").arg(QLatin1String(field.key), range);
    if (field.zeroMeansOff) sentence += ", or 0 for off";
    return sentence + QString(" (got %1).").arg(QString::fromUtf8(formatFloat(value)));
}

QString formatVoiceFieldValue(const VoiceFieldRange& field, float value) {
    if (field.zeroMeansOff && value == 0) return "Off";
    QString text = number(value, field.decimals);
    // Signed quantities read as shifts: "+650 cents", "-0.5 st", "+2.0 dB".
    if (field.minimum < 0 && value >= 0) text.prepend('+');
    return withUnit(field, text);
}

}  // namespace parlova
