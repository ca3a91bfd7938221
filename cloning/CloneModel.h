#pragma once
// The two speech models a cloned voice can speak with, and which of a voice's
// samples each one listens to.
#include "cloning/ClonedVoice.h"

#include <QSet>
#include <QString>

#include <array>

namespace parlova {

enum class CloneModel { fast, best };

inline constexpr std::array<CloneModel, 2> kAllCloneModels{CloneModel::fast, CloneModel::best};

// Raw value (kept in the settings under "cloneModel"): "fast" or "best".
QString rawValue(CloneModel model);
std::optional<CloneModel> cloneModelFromRaw(const QString& raw);
// The worker's "model" value: "chatterbox-turbo" or "qwen".
QString workerName(CloneModel model);
// "Chatterbox Turbo" or "Best match".
QString displayName(CloneModel model);
QString modelDescription(CloneModel model);
// Seconds of samples the model listens to (15 or 40); also the request's "max_seconds".
double listenSeconds(CloneModel model);

// The ids of the samples the model will listen to, walking from the first.
QSet<QUuid> usedSamples(CloneModel model, const ClonedVoice& voice);
// The seconds of audio it will listen to (never more than listenSeconds).
double usedSeconds(CloneModel model, const ClonedVoice& voice);

// Whether the model's weights are already in the local model cache under
// `home` (the user's home folder when empty), so that the first generation
// needs no download.
bool isDownloaded(CloneModel model, const QString& home = {});
// The model's folder name in the Hugging Face cache on this platform.
QString cacheName(CloneModel model);

}  // namespace parlova
