#pragma once
// An AudioSource that plays planar samples from memory, then silence.
#include "dsp/AudioBuffers.h"

#include <algorithm>
#include <vector>

namespace parlova::testaudio {

class MemorySource : public AudioSource {
public:
    explicit MemorySource(std::vector<std::vector<float>> channels) : channels_(std::move(channels)) {}
    int32_t pull(BufferList& out, int frames) noexcept override {
        const size_t length = channels_.empty() ? 0 : channels_[0].size();
        for (int c = 0; c < out.count; ++c) {
            const auto& src = channels_[std::min(static_cast<size_t>(c), channels_.size() - 1)];
            for (int i = 0; i < frames; ++i) {
                const size_t at = position_ + static_cast<size_t>(i);
                out.data[c][i] = at < length ? src[at] : 0.0f;
            }
        }
        position_ += static_cast<size_t>(frames);
        return status::ok;
    }

private:
    std::vector<std::vector<float>> channels_;
    size_t position_ = 0;
};

}  // namespace parlova::testaudio
