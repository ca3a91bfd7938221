#pragma once
// Stationary-noise suppression for one mono microphone signal, built on the
// speexdsp preprocessor. It works on fixed frames (the preprocessor's own
// unit); the caller collects them. Only denoising is switched on: no automatic
// gain and no dereverberation, so speech keeps its level.
//
// prepare() allocates everything; process() is real-time safe.
#include <cstdint>
#include <vector>

struct SpeexPreprocessState_;

namespace parlova {

class SpeexDenoiser {
public:
    SpeexDenoiser() = default;
    ~SpeexDenoiser();
    SpeexDenoiser(const SpeexDenoiser&) = delete;
    SpeexDenoiser& operator=(const SpeexDenoiser&) = delete;

    // `frameSize` samples per process() call at `sampleRate`; `suppressDb`
    // is the most the noise is lowered (a negative number of decibels).
    void prepare(int frameSize, int sampleRate, int suppressDb);
    int frameSize() const { return frameSize_; }
    // The preprocessor overlaps its frames: its output trails its input by one frame.
    int delayFrames() const { return frameSize_; }

    // Audio thread: denoises one frame of frameSize() samples in place.
    void process(float* frame) noexcept;

private:
    SpeexPreprocessState_* state_ = nullptr;
    int frameSize_ = 0;
    std::vector<int16_t> scratch_;
};

}  // namespace parlova
