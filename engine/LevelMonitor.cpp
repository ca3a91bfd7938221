#include "engine/LevelMonitor.h"

#include <algorithm>
#include <cmath>

namespace parlova {

float LevelMonitor::rms(const float* samples, int frames) noexcept {
    if (samples == nullptr || frames <= 0) return 0.0f;
    double sum = 0;
    for (int i = 0; i < frames; ++i) sum += static_cast<double>(samples[i]) * samples[i];
    const float r = static_cast<float>(std::sqrt(sum / frames));
    const float level = (20.0f * std::log10(std::max(r, 0.000001f)) + 50.0f) / 50.0f;
    return std::clamp(level, 0.0f, 1.0f);
}

void LevelMonitor::update(float level, Clock::time_point now) {
    if (level <= smoothed_)
        smoothed_ = 0.15f * level + 0.85f * smoothed_;  // slow fall
    else
        smoothed_ = level;  // instant rise
    if (now - lastPublish_ >= std::chrono::milliseconds(50) && std::fabs(smoothed_ - value_) > 0.005f) {
        lastPublish_ = now;
        value_ = smoothed_;
        emit valueChanged(value_);
    }
}

void LevelMonitor::reset() {
    smoothed_ = 0;
    if (value_ != 0) {
        value_ = 0;
        emit valueChanged(0);
    }
}

bool shouldPublishPitch(float published, float detected) {
    if ((published == 0) != (detected == 0)) return true;
    return std::fabs(detected - published) >= 1.0f;
}

}  // namespace parlova
