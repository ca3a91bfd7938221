#pragma once
// Noise suppression for one mono microphone signal at 48000 Hz: a recurrent
// network trained on speech against steady and non-stationary noise (fans,
// hum, keyboards), through the shim's denoiser. It works on fixed 10 ms
// frames; the caller collects them.
//
// prepare() allocates everything; process() is real-time safe.
#include "dsp/shifter/parlova_denoiser.h"

namespace parlova {

class SpeechDenoiser {
public:
    static constexpr double kSampleRate = 48000;

    SpeechDenoiser() = default;
    ~SpeechDenoiser();
    SpeechDenoiser(const SpeechDenoiser&) = delete;
    SpeechDenoiser& operator=(const SpeechDenoiser&) = delete;

    // Makes a fresh state (any earlier one is dropped).
    void prepare();
    static int frameSize() { return parlova_denoiser_frame_size(); }
    // Its analysis window overlaps the frame before: output trails input by one frame.
    static int delayFrames() { return frameSize(); }

    // Audio thread: denoises one frame of frameSize() samples in place.
    void process(float* frame) noexcept;

private:
    ParlovaDenoiser* state_ = nullptr;
};

}  // namespace parlova
