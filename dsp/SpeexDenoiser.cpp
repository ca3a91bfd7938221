#include "dsp/SpeexDenoiser.h"

#include <speex/speex_preprocess.h>

#include <algorithm>
#include <cmath>

namespace parlova {

SpeexDenoiser::~SpeexDenoiser() {
    if (state_) speex_preprocess_state_destroy(state_);
}

void SpeexDenoiser::prepare(int frameSize, int sampleRate, int suppressDb) {
    if (state_) speex_preprocess_state_destroy(state_);
    frameSize_ = frameSize;
    scratch_.assign(static_cast<size_t>(frameSize), 0);
    state_ = speex_preprocess_state_init(frameSize, sampleRate);
    int on = 1, off = 0;
    speex_preprocess_ctl(state_, SPEEX_PREPROCESS_SET_DENOISE, &on);
    speex_preprocess_ctl(state_, SPEEX_PREPROCESS_SET_NOISE_SUPPRESS, &suppressDb);
    speex_preprocess_ctl(state_, SPEEX_PREPROCESS_SET_AGC, &off);
    speex_preprocess_ctl(state_, SPEEX_PREPROCESS_SET_DEREVERB, &off);
}

void SpeexDenoiser::process(float* frame) noexcept {
    if (!state_) return;
    // The preprocessor takes 16-bit samples.
    for (int i = 0; i < frameSize_; ++i) {
        const float scaled = std::clamp(frame[i], -1.0f, 1.0f) * 32767.0f;
        scratch_[static_cast<size_t>(i)] = static_cast<int16_t>(std::lrint(scaled));
    }
    speex_preprocess_run(state_, scratch_.data());
    for (int i = 0; i < frameSize_; ++i) frame[i] = static_cast<float>(scratch_[static_cast<size_t>(i)]) / 32767.0f;
}

}  // namespace parlova
