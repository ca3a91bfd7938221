#include "engine/ChainOutput.h"

#include "devices/AudioBackend.h"

#include <algorithm>

namespace parlova {

ChainOutput::ChainOutput(VoiceStage& stage, TapRelay& meter, double sampleRate, MicBridge* monitor,
                         SoundMixer* sounds)
    : stage_(stage), meter_(meter), monitor_(monitor), sounds_(sounds),
      left_(AudioBackend::kMaxSliceFrames), right_(AudioBackend::kMaxSliceFrames) {
    volume_.prepare(sampleRate, kVolumeRampSeconds);
}

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
    volume_.setTarget(target_.load(std::memory_order_relaxed));
    volume_.apply(stereo.data, 2, frames);
    if (sounds_ != nullptr) sounds_->mix(left_.data(), right_.data(), frames);
    for (int c = 0; c < out.count; ++c) {
        if (!out.data[c]) continue;
        std::copy_n(stereo.data[std::min(c, 1)], frames, out.data[c]);
    }
    if (monitor_ != nullptr) monitor_->write(out, frames);
    return status::ok;
}

}  // namespace parlova
