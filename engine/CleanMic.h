#pragma once
// "Clean up my mic": an input stage in front of the voice stage. It takes the
// microphone (any channel count, mixed to mono), takes key clicks out, removes
// room noise with a speech denoiser (steady fans and hum as well as what is
// left of the clicks) and closes a noise gate between words, so what is left
// is not pitch-shifted into a warble. It runs at the chain's rate, 48000 Hz,
// the only rate the denoiser knows.
//
// It adds no delay of its own. The click suppressor trails by a few
// milliseconds, the denoiser works on 10 ms frames and trails by one frame:
// all are served by reading that far ahead of its consumer from the source
// (inside the microphone bridge's cushion, or the file), so output sample n
// is input sample n cleaned. The gate decides on the denoised signal as it
// passes but applies its gain behind the voice stage, whose own delay (the
// shifter's blocks) gives its lookahead for free. Everything is made in the
// constructor; pull() is real-time safe.
#include "dsp/AudioBuffers.h"
#include "dsp/ClickSuppressor.h"
#include "dsp/NoiseGate.h"
#include "dsp/SpeechDenoiser.h"
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
    static constexpr int kMaxPullFrames = 4096;

    // `input` delivers `inputChannels` channels at `sampleRate` (48000) and takes pulls
    // of at most `inputMaxFrames`.
    CleanMicSource(AudioSource& input, int inputChannels, double sampleRate,
                   std::shared_ptr<const CleanMicControl> control, int inputMaxFrames = kMaxPullFrames);

    // Mono, denoised, into every buffer of `out`; at most kMaxPullFrames. A
    // status other than ok from the input is passed on, and what was taken is kept.
    int32_t pull(BufferList& out, int frames) noexcept override;

    // The gate is applied downstream, where the audio trails this source by
    // `delayFrames` (the voice stage's own delay), so its lookahead costs no
    // delay. Call once, before any pull.
    void prepareGate(int delayFrames);
    // Audio thread, after the stage rendered `frames` more frames from this
    // source: gates them in place.
    void gateOutput(BufferList& out, int frames) noexcept;

    // How far ahead of its consumer it reads, at most, in frames.
    int readAheadFrames() const { return frameSize_ + denoiser_.delayFrames() + ClickSuppressor::delayFrames(); }

private:
    // Takes `count` samples from the input, cleaning each frame as it fills.
    int32_t takeInput(int64_t count) noexcept;
    void cleanFrame() noexcept;
    float gainAt(int64_t sample) const noexcept;

    AudioSource& input_;
    int inputChannels_, inputMaxFrames_, frameSize_;
    std::shared_ptr<const CleanMicControl> control_;
    ClickSuppressor clicks_;
    SpeechDenoiser denoiser_;
    NoiseGate gate_;
    std::vector<std::vector<float>> inputBlock_;  // one pull of the input, per channel
    std::vector<float> frame_;                   // the frame being gathered
    std::vector<float> raw_, rawBefore_;         // it before denoising, and the frame before that
    int frameFill_ = 0;
    int64_t taken_ = 0, handedOn_ = 0;  // samples taken from the input, and handed on
    std::vector<float> ready_;                   // cleaned samples not yet handed on
    int readyStart_ = 0, readyCount_ = 0;
    int skip_;  // the suppressor's and the denoiser's delay, dropped once so output lines up with input
    // The gate's gains by sample number (a ring), and the stage's delay.
    std::vector<float> gains_, frameGains_;
    int64_t analysed_ = 0;  // samples the gate has seen
    int64_t gated_ = 0;     // samples of output gated so far
    int delayFrames_ = 0;
};

// A voice stage whose input passes through the clean-mic stage first.
class CleanMicStage final : public VoiceStage {
public:
    CleanMicStage(AudioSource& input, double sampleRate, const VoiceStageFactory& inner,
                  std::shared_ptr<const CleanMicControl> control);
    int32_t render(BufferList& out, int frames) noexcept override;
    double latencySeconds() const override { return inner_->latencySeconds(); }
    double readAheadSeconds() const override;
    std::shared_ptr<VoiceChain> chain() const override { return inner_->chain(); }

    // `inner` fed through the clean-mic stage.
    static VoiceStageFactory wrap(VoiceStageFactory inner, std::shared_ptr<const CleanMicControl> control);

private:
    std::unique_ptr<CleanMicSource> clean_;
    std::unique_ptr<VoiceStage> inner_;
};

}  // namespace parlova
