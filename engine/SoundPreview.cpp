#include "engine/SoundPreview.h"

#include "engine/VoiceChain.h"

#include <algorithm>

namespace parlova {

// Silence with the sounds mixed over it.
class SoundPreview::Source : public AudioSource {
public:
    explicit Source(SoundMixer& sounds) : sounds_(sounds) {}
    int32_t pull(BufferList& out, int frames) noexcept override {
        if (out.count < 1) return status::ok;
        float* left = out.data[0];
        float* right = out.count > 1 && out.data[1] ? out.data[1] : left;
        std::fill_n(left, frames, 0.0f);
        if (right != left) {
            std::fill_n(right, frames, 0.0f);
            sounds_.mix(left, right, frames);
        } else {
            // One channel: the mixer writes the right side into scratch that is dropped.
            frames = std::min(frames, AudioBackend::kMaxSliceFrames);
            std::fill_n(scratch_, frames, 0.0f);
            sounds_.mix(left, scratch_, frames);
        }
        return status::ok;
    }

private:
    SoundMixer& sounds_;
    float scratch_[AudioBackend::kMaxSliceFrames];
};

SoundPreview::SoundPreview(AudioBackend& backend, const DeviceEntry& output, const StreamFaults& faults)
    : sounds_(std::make_unique<SoundMixer>(kChainSampleRate)), source_(std::make_unique<Source>(*sounds_)) {
    output_ = backend.openOutput(output, AudioFormat{kChainSampleRate, 2}, *source_, 0.05, faults);
}

SoundPreview::~SoundPreview() { output_.reset(); }

void SoundPreview::start() { output_->start(); }

}  // namespace parlova
