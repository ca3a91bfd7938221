#include "engine/ChainOutput.h"

#include "devices/AudioBackend.h"

#include <algorithm>

namespace parlova {

ChainOutput::ChainOutput(VoiceStage& stage, TapRelay& meter, double sampleRate, MicBridge* monitor)
    : stage_(stage), meter_(meter), monitor_(monitor),
      rampStep_(static_cast<float>(1.0 / std::max(1.0, kVolumeRampSeconds * sampleRate))),
      left_(AudioBackend::kMaxSliceFrames), right_(AudioBackend::kMaxSliceFrames) {}

int32_t ChainOutput::pull(BufferList& out, int frames) noexcept {
    frames = std::min(frames, AudioBackend::kMaxSliceFrames);
    BufferList stereo;
    stereo.count = 2;
    stereo.data[0] = left_.data();
    stereo.data[1] = right_.data();
    if (stage_.render(stereo, frames) != status::ok) {
        std::fill_n(left_.data(), frames, 0.0f);
        std::fill_n(right_.data(), frames, 0.0f);
    }
    meter_.push(left_.data(), frames);
    const float target = target_.load(std::memory_order_relaxed);
    float volume = applied_;
    for (int i = 0; i < frames; ++i) {
        if (volume != target) volume = volume < target ? std::min(target, volume + rampStep_) : std::max(target, volume - rampStep_);
        left_[static_cast<size_t>(i)] *= volume;
        right_[static_cast<size_t>(i)] *= volume;
    }
    applied_ = volume;
    for (int c = 0; c < out.count; ++c) {
        if (!out.data[c]) continue;
        std::copy_n(stereo.data[std::min(c, 1)], frames, out.data[c]);
    }
    if (monitor_ != nullptr) monitor_->write(out, frames);
    return status::ok;
}

}  // namespace parlova
