#include "engine/LevelMonitor.h"

#include <algorithm>
#include <cmath>

namespace parlova {

namespace {
float toDb(double amplitude) {
    return amplitude > 0 ? std::max(LevelMonitor::kFloorDb, static_cast<float>(20.0 * std::log10(amplitude)))
                         : LevelMonitor::kFloorDb;
}
}  // namespace

LevelMonitor::Level LevelMonitor::measure(const float* samples, int frames) noexcept {
    if (samples == nullptr || frames <= 0) return {};
    double sum = 0;
    float peak = 0;
    for (int i = 0; i < frames; ++i) {
        sum += static_cast<double>(samples[i]) * samples[i];
        peak = std::max(peak, std::fabs(samples[i]));
    }
    return {toDb(std::sqrt(sum / frames)), toDb(peak)};
}

bool shouldPublishPitch(float published, float detected) {
    if ((published == 0) != (detected == 0)) return true;
    return std::fabs(detected - published) >= 1.0f;
}

}  // namespace parlova
