#pragma once
// "Clean up my mic": an input stage in front of the voice stage. It takes the
// microphone (any channel count, mixed to mono), lowers steady room noise with
// the speexdsp preprocessor and closes a noise gate between words, so fan hiss
// and keyboard clatter are not pitch-shifted into a warble.
//
// It adds no delay of its own: the denoiser works on 5 ms frames and trails by
// one frame, and the gate looks a few milliseconds ahead; all of it is served
// by reading that far ahead of its consumer from the source (inside the
// microphone bridge's cushion, or the file), so output sample n is input
// sample n cleaned. Everything is made
// in the constructor; pull() is real-time safe.
#include "dsp/AudioBuffers.h"
#include "dsp/NoiseGate.h"
#include "dsp/SpeexDenoiser.h"
#include "engine/VoiceStage.h"

#include <atomic>
#include <memory>
#include <vector>

namespace parlova {

// The user's setting, shared with running stages: the threshold may change at
// any time (read once per block with relaxed order: a lone float).
struct CleanMicControl {
    static constexpr float kDefaultGateDb = -45.0f;
    std::atomic<float> gateDb{kDefaultGateDb};
};

class CleanMicSource final : public AudioSource {
public:
    static constexpr double kFrameSeconds = 0.005;
    static constexpr int kSuppressDb = -30;
    static constexpr int kMaxPullFrames = 4096;

    // `input` delivers `inputChannels` channels at `sampleRate` and takes pulls
    // of at most `inputMaxFrames`.
    CleanMicSource(AudioSource& input, int inputChannels, double sampleRate,
                   std::shared_ptr<const CleanMicControl> control, int inputMaxFrames = kMaxPullFrames);

    // Mono into every buffer of `out`; at most kMaxPullFrames. A status other
    // than ok from the input is passed on, and what was taken is kept.
    int32_t pull(BufferList& out, int frames) noexcept override;

    // How far ahead of its consumer it reads, at most, in frames.
    int readAheadFrames() const { return frameSize_ + denoiser_.delayFrames() + gate_.lookaheadFrames(); }

private:
    int32_t fillFrame() noexcept;

    AudioSource& input_;
    int inputChannels_, inputMaxFrames_, frameSize_;
    std::shared_ptr<const CleanMicControl> control_;
    SpeexDenoiser denoiser_;
    NoiseGate gate_;
    std::vector<std::vector<float>> inputBlock_;  // one pull of the input, per channel
    std::vector<float> frame_;                   // the frame being gathered
    int frameFill_ = 0;
    std::vector<float> ready_;                   // cleaned samples not yet handed on
    int readyStart_ = 0, readyCount_ = 0;
    int skip_;  // the denoiser's and gate's delay, dropped once so output lines up with input
};

// A voice stage whose input passes through the clean-mic stage first.
class CleanMicStage final : public VoiceStage {
public:
    CleanMicStage(AudioSource& input, double sampleRate, const VoiceStageFactory& inner,
                  std::shared_ptr<const CleanMicControl> control);
    int32_t render(BufferList& out, int frames) noexcept override { return inner_->render(out, frames); }
    double latencySeconds() const override { return inner_->latencySeconds(); }
    std::shared_ptr<VoiceChain> chain() const override { return inner_->chain(); }

    // `inner` fed through the clean-mic stage.
    static VoiceStageFactory wrap(VoiceStageFactory inner, std::shared_ptr<const CleanMicControl> control);

private:
    std::unique_ptr<CleanMicSource> clean_;
    std::unique_ptr<VoiceStage> inner_;
};

}  // namespace parlova
