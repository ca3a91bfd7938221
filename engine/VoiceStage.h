#pragma once
// The stage of the live route that turns the microphone into the voice the
// listener hears. The route is capture -> bridge -> voice stage -> output: the
// effect chain is one voice stage; a cloned voice's stream is another.
#include "engine/VoiceChain.h"

#include <functional>
#include <memory>

namespace parlova {

class VoiceStage {
public:
    virtual ~VoiceStage() = default;
    // Audio thread: renders `frames` (at most VoiceChain::kMaxFrames) of
    // stereo into `out`, pulling its input as it needs.
    virtual int32_t render(BufferList& out, int frames) noexcept = 0;
    // The delay the stage adds, in seconds.
    virtual double latencySeconds() const = 0;
    // How far ahead of its output the stage reads its input, in seconds. It
    // reads that much more on its first render (the bridge is still gathering
    // its cushion then, so that is silence) and from then on as much as it
    // renders, so it needs no more cushion than any other stage.
    virtual double readAheadSeconds() const { return 0; }
    // The effect chain inside, for voice edits, modulation and the pitch
    // readout; null for a stage without one.
    virtual std::shared_ptr<VoiceChain> chain() const { return nullptr; }
};

// Builds a stage over the route's input (mono at `sampleRate`). Runs on the
// thread that builds the route.
using VoiceStageFactory = std::function<std::unique_ptr<VoiceStage>(AudioSource& input, double sampleRate)>;

// The effect chain as a voice stage.
class EffectVoiceStage final : public VoiceStage {
public:
    EffectVoiceStage(const Voice& voice, AudioSource& input, const AudioFormat& inputFormat,
                     ShifterTiming timing = ShifterTiming::normal());
    explicit EffectVoiceStage(std::shared_ptr<VoiceChain> chain) : chain_(std::move(chain)) {}
    int32_t render(BufferList& out, int frames) noexcept override { return chain_->render(out, frames); }
    double latencySeconds() const override { return latencySeconds(*chain_); }
    std::shared_ptr<VoiceChain> chain() const override { return chain_; }
    // The delay of a chain from its input to its output.
    static double latencySeconds(VoiceChain& chain);

    static VoiceStageFactory factory(const Voice& voice, ShifterTiming timing = ShifterTiming::normal());

private:
    std::shared_ptr<VoiceChain> chain_;
};

}  // namespace parlova
