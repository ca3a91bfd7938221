#include "engine/VoiceStage.h"

namespace parlova {

namespace {
// The shifter works in 60 ms blocks advanced every 15 ms; a block's effect is
// centred half a block after its input and its output half a block later, so
// the output trails the input by one block (the interval adds nothing).
constexpr double kShifterLatencySeconds = 0.06;
}  // namespace

EffectVoiceStage::EffectVoiceStage(const Voice& voice, AudioSource& input, const AudioFormat& inputFormat)
    : chain_(std::make_shared<VoiceChain>(voice, &input, inputFormat)) {}

double EffectVoiceStage::latencySeconds(VoiceChain& chain) {
    return kShifterLatencySeconds + chain.limiter().latencyFrames() / chain.format().sampleRate;
}

VoiceStageFactory EffectVoiceStage::factory(const Voice& voice) {
    return [voice](AudioSource& input, double sampleRate) -> std::unique_ptr<VoiceStage> {
        return std::make_unique<EffectVoiceStage>(voice, input, AudioFormat{sampleRate, 1});
    };
}

}  // namespace parlova
