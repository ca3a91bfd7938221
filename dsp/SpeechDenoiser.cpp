#include "dsp/SpeechDenoiser.h"

namespace parlova {

SpeechDenoiser::~SpeechDenoiser() { parlova_denoiser_destroy(state_); }

void SpeechDenoiser::prepare() {
    parlova_denoiser_destroy(state_);
    state_ = parlova_denoiser_create();
}

void SpeechDenoiser::process(float* frame) noexcept {
    if (state_) parlova_denoiser_process(state_, frame, frame);
}

}  // namespace parlova
