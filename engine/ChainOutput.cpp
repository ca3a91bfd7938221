#include "engine/ChainOutput.h"

#include "engine/DeviceOutput.h"

#include <algorithm>

namespace parlova {

ChainOutput::ChainOutput(VoiceChain& chain, TapRelay& meter, const std::atomic<float>* volume, MicBridge* monitor)
    : chain_(chain), meter_(meter), volume_(volume), monitor_(monitor),
      left_(DeviceOutput::kMaxSliceFrames), right_(DeviceOutput::kMaxSliceFrames) {}

int32_t ChainOutput::pull(BufferList& out, int frames) noexcept {
    frames = std::min(frames, DeviceOutput::kMaxSliceFrames);
    BufferList stereo;
    stereo.count = 2;
    stereo.data[0] = left_.data();
    stereo.data[1] = right_.data();
    if (chain_.render(stereo, frames) != status::ok) {
        std::fill_n(left_.data(), frames, 0.0f);
        std::fill_n(right_.data(), frames, 0.0f);
    }
    const float* tapped = left_.data();
    meter_.push(&tapped, frames);
    const float volume = volume_ ? volume_->load(std::memory_order_relaxed) : 1.0f;
    for (int c = 0; c < out.count; ++c) {
        const float* from = stereo.data[std::min(c, 1)];
        for (int i = 0; i < frames; ++i) out.data[c][i] = from[i] * volume;
    }
    if (monitor_ != nullptr) monitor_->write(out, frames);
    return status::ok;
}

}  // namespace parlova
