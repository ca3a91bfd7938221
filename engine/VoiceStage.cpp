#include "engine/VoiceStage.h"

namespace parlova {

EffectVoiceStage::EffectVoiceStage(const Voice& voice, AudioSource& input, const AudioFormat& inputFormat,
                                   ShifterTiming timing)
    : chain_(std::make_shared<VoiceChain>(voice, &input, inputFormat, VoiceChain::kMaxFrames, timing)) {}

double EffectVoiceStage::latencySeconds(VoiceChain& chain) {
    // The shifter's block (a block's effect is centred half a block after its
    // input and its output half a block later; the interval adds nothing) and
    // the limiter's lookahead.
    return chain.shifter().latencySeconds() + chain.limiter().latencyFrames() / chain.format().sampleRate;
}

VoiceStageFactory EffectVoiceStage::factory(const Voice& voice, ShifterTiming timing) {
    return [voice, timing](AudioSource& input, double sampleRate) -> std::unique_ptr<VoiceStage> {
        return std::make_unique<EffectVoiceStage>(voice, input, AudioFormat{sampleRate, 1}, timing);
    };
}

}  // namespace parlova
