#pragma once
// Takes key clicks, mouse buttons and knocks out of a microphone signal
// before the speech denoiser sees it. A click over speech makes the denoiser
// duck the words around it for tens of milliseconds; with the click gone
// first, the words pass whole.
//
// The signal is split at kSplitHz. Voiced speech has most of its energy below;
// a click is broadband, so even a click quieter than the words stands far out
// of the words' high band. The high band is judged in 1 ms blocks: a click is
// a block far louder there than any of the blocks before it, whose loudness falls
// back within kLookaheadBlocks. Fricatives, aspiration and vowel onsets go on
// longer than that. The high band of the click's blocks is scaled down to the
// level of the blocks before it; the low band, where the words are, passes
// untouched.
//
// The decision needs the blocks after the click, so the output trails the
// input by delayFrames(). prepare() allocates; process() is real-time safe.
#include "dsp/Equalizer.h"

#include <array>
#include <vector>

namespace parlova {

class ClickSuppressor {
public:
    static constexpr int kBlockFrames = 48;  // 1 ms at 48000 Hz
    static constexpr int kLookaheadBlocks = 4;
    static constexpr double kSplitHz = 2000;

    void prepare(double sampleRate = 48000);
    static constexpr int delayFrames() { return kBlockFrames * kLookaheadBlocks; }

    // Audio thread: `frames` (a multiple of kBlockFrames) samples in place;
    // what comes out is the input of delayFrames() earlier, with clicks taken
    // out. `delayedInput`, when given, receives that input as it was.
    void process(float* samples, int frames, float* delayedInput = nullptr) noexcept;

    // Blocks scaled down since prepare() (for tests and the bench).
    long suppressedBlocks() const { return suppressed_; }

private:
    struct Block {
        std::array<float, kBlockFrames> samples{}, high{};  // the input, and its high band
        float energy = 0;  // mean square of the high band
    };
    // The background is the loudest block of the last kHistory that was not a
    // click: voiced speech puts its high band into one short burst per pitch
    // period, and those bursts must not count as clicks down to 50 Hz.
    static constexpr int kHistory = 20;

    void measure(Block& block, const float* in) noexcept;
    float background() const noexcept;
    bool startsClick(int oldest) const noexcept;
    float blockGain(const Block& block) const noexcept;

    std::vector<Block> pending_;  // ring of kLookaheadBlocks + 1: the judged block and its future
    int newest_ = -1;
    int filled_ = 0;
    Equalizer::Coefficients split_;  // the high-pass filter, and its state
    double z1_ = 0, z2_ = 0;
    std::array<float, kHistory> history_{};  // high-band energies of recent blocks that were not clicks
    int historyPos_ = 0, historyCount_ = 0;
    int clickLeft_ = 0;    // blocks of the current click still to scale
    float clickLevel_ = 0; // the background the click is scaled down to
    float gain_ = 1;       // gain at the end of the last block, ramped from
    long suppressed_ = 0;
};

}  // namespace parlova
