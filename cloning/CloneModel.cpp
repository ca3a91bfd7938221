#include "cloning/CloneModel.h"

#include <QDir>

namespace parlova {

QString rawValue(CloneModel model) { return model == CloneModel::fast ? "fast" : "best"; }

std::optional<CloneModel> cloneModelFromRaw(const QString& raw) {
    for (auto model : kAllCloneModels)
        if (rawValue(model) == raw) return model;
    return std::nullopt;
}

QString workerName(CloneModel model) { return model == CloneModel::fast ? "chatterbox-turbo" : "qwen"; }

QString displayName(CloneModel model) { return model == CloneModel::fast ? "Chatterbox Turbo" : "Best match"; }

QString modelDescription(CloneModel model) {
    return model == CloneModel::fast
               ? QStringLiteral("Quick and natural. Listens to the first ~15 s of your samples, so extra samples "
                                "beyond that aren't used.")
               : QStringLiteral("Closer resemblance and benefits from more samples: listens to up to ~40 s, "
                                "together with their transcripts. Slower.");
}

double listenSeconds(CloneModel model) { return model == CloneModel::fast ? 15.0 : 40.0; }

namespace {

// Walks the samples as the worker does; calls `take(sample, heardSeconds)`.
template <typename Take>
void walkUsed(CloneModel model, const ClonedVoice& voice, Take take) {
    double remaining = listenSeconds(model);
    bool takenAny = false;
    for (const auto& sample : voice.samples) {
        if (remaining < 0.5) break;
        if (sample.duration <= remaining) {
            take(sample, sample.duration);
            remaining -= sample.duration;
            takenAny = true;
        } else if (model == CloneModel::fast || !takenAny) {
            // Turbo hears the beginning of a long sample; Qwen uses a
            // reference whole, so a long one only when it is the first.
            take(sample, remaining);
            remaining = 0;
            takenAny = true;
        }
    }
}

}  // namespace

QSet<QUuid> usedSamples(CloneModel model, const ClonedVoice& voice) {
    QSet<QUuid> ids;
    walkUsed(model, voice, [&](const VoiceSample& s, double) { ids.insert(s.id); });
    return ids;
}

double usedSeconds(CloneModel model, const ClonedVoice& voice) {
    double total = 0;
    walkUsed(model, voice, [&](const VoiceSample&, double heard) { total += heard; });
    return total;
}

QString cacheName(CloneModel model) {
    // The repositories the Linux worker loads its weights from.
    return model == CloneModel::fast ? "models--ResembleAI--chatterbox-turbo" : "models--Qwen--Qwen3-TTS-12Hz-1.7B-Base";
}

bool isDownloaded(CloneModel model, const QString& home) {
    // The cache the worker's hub library uses: HF_HUB_CACHE, else HF_HOME/hub,
    // else ~/.cache/huggingface/hub.
    QString hub = home.isEmpty() ? qEnvironmentVariable("HF_HUB_CACHE") : QString();
    if (hub.isEmpty() && home.isEmpty() && qEnvironmentVariableIsSet("HF_HOME")) hub = qEnvironmentVariable("HF_HOME") + "/hub";
    if (hub.isEmpty()) hub = (home.isEmpty() ? QDir::homePath() : home) + "/.cache/huggingface/hub";
    const QDir snapshots(hub + "/" + cacheName(model) + "/snapshots");
    return snapshots.exists() && !snapshots.isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot);
}

}  // namespace parlova
