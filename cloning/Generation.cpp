#include "cloning/Generation.h"

#include "cloning/ReadingScripts.h"

#include <QRandomGenerator>

namespace parlova {

QString Generation::blocker(CloneModel model, const ClonedVoice& voice, bool permissionConfirmed,
                            const QString& text) {
    if (usedSeconds(model, voice) < kMinimumSeconds) return QStringLiteral("Record at least 5 seconds of samples first.");
    if (model == CloneModel::best) {
        const QSet<QUuid> used = usedSamples(model, voice);
        for (const auto& sample : voice.samples)
            if (used.contains(sample.id) && sample.transcript.trimmed().isEmpty())
                return QStringLiteral("Best match needs a transcript for every sample it uses.");
    }
    if (!permissionConfirmed) return QStringLiteral("Confirm you have permission to clone this voice.");
    if (text.trimmed().isEmpty()) return QStringLiteral("Type something to say.");
    return {};
}

QString Generation::voiceSummary(const ClonedVoice& voice, CloneModel model) {
    return QString::asprintf("%.0f s of samples \u00b7 %d of %d practice sentences read \u00b7 ", voice.totalSeconds(),
                             ReadingScripts::readCount(voice), int(ReadingScripts::sentences().size())) +
           displayName(model) + QString::asprintf(" listens to %.0f s", usedSeconds(model, voice));
}

int Generation::anotherTakeSeed() { return int(QRandomGenerator::system()->bounded(1, 10000)); }

CloneModel Generation::model(const QSettings& settings) {
    return cloneModelFromRaw(settings.value(kModelKey).toString()).value_or(CloneModel::fast);
}

void Generation::setModel(QSettings& settings, CloneModel model) { settings.setValue(kModelKey, rawValue(model)); }

bool Generation::playWhenReady(const QSettings& settings) { return settings.value(kPlayWhenReadyKey, true).toBool(); }

void Generation::setPlayWhenReady(QSettings& settings, bool on) { settings.setValue(kPlayWhenReadyKey, on); }

}  // namespace parlova
