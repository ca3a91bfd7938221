#pragma once
// Streaming sample-rate conversion for planar float audio (libsoxr, high
// quality, linear phase), and an AudioSource that pulls a source at one rate
// and delivers another.
//
// Timing: the conversion adds no delay. Output frame k is the signal at input
// time k * inputRate / outputRate; an impulse at input frame n comes out at
// output frame round(n * outputRate / inputRate).
//
// Priming: the filter needs input beyond the output it delivers, and libsoxr
// works in blocks, so output comes in bursts. A fresh converter returns nothing
// until it holds roughly 600 to 8000 input frames (more when converting down to
// a low rate: 48 kHz -> 8 kHz takes about 7700). After that, each process()
// call returns whatever is ready, between 0 and maxOutputFrames(). The
// RateConvertingSource hides the bursts: every pull delivers exactly the frames
// asked for, pulling its source as far ahead as the converter needs (its first
// pull reads the whole priming amount). A file or clip can be read ahead like
// that; a live microphone cannot, so this is for sources that are there.
//
// Threads: the constructor allocates everything and runs the converter through
// silence once, so that libsoxr's internal buffers have reached their working
// size; afterwards process() and pull() neither allocate nor lock and can run
// on an audio thread. One thread at a time per object.
#include "dsp/AudioBuffers.h"

#include <cstdint>
#include <vector>

struct soxr;

namespace parlova {

class RateConverter {
public:
    // Converts `channels` (1..kMaxChannels) planar channels from `inputRate` to
    // `outputRate`, taking at most `maxInputFrames` frames per process() call.
    // Equal rates pass the samples through untouched. Throws std::runtime_error
    // when libsoxr refuses the rates.
    RateConverter(double inputRate, double outputRate, int channels, int maxInputFrames);
    ~RateConverter();
    RateConverter(const RateConverter&) = delete;
    RateConverter& operator=(const RateConverter&) = delete;

    double inputRate() const { return inputRate_; }
    double outputRate() const { return outputRate_; }
    int channels() const { return channels_; }
    int maxInputFrames() const { return maxInputFrames_; }
    // The most frames one process() call writes; size output buffers to this.
    int maxOutputFrames() const { return maxOutputFrames_; }
    bool passesThrough() const { return converter_ == nullptr; }

    // Takes all `frames` (0..maxInputFrames) of `input` (one pointer per
    // channel) and writes the output that is ready, at most maxOutputFrames(),
    // to `output`; returns the frames written, or -1 when libsoxr fails or the
    // arguments are out of range. Output that did not fit stays inside and
    // comes first at the next call.
    int process(const float* const* input, int frames, float* const* output) noexcept;

private:
    int convert(const float* const* input, int frames, float* const* output, int capacity) noexcept;

    double inputRate_, outputRate_;
    int channels_, maxInputFrames_, maxOutputFrames_;
    soxr* converter_ = nullptr;
    // Output frames still to drop after the silent start-up run (see the constructor).
    int64_t skip_ = 0;
    std::vector<std::vector<float>> discard_;
};

// Pulls `source` (which delivers `channels` channels at `sourceRate`) in blocks
// and hands on exactly the frames asked for at `outputRate`. A source status
// other than ok is passed on; the frames already converted are kept for the
// next pull. Equal rates forward every pull straight to the source.
class RateConvertingSource : public AudioSource {
public:
    // `maxFrames`: the most frames one pull() asks for.
    RateConvertingSource(AudioSource* source, int channels, double sourceRate, double outputRate,
                         int maxFrames = 4096);

    int32_t pull(BufferList& out, int frames) noexcept override;

    const RateConverter& converter() const { return converter_; }
    // Frames pulled from the source so far.
    int64_t sourceFramesPulled() const { return pulled_; }

private:
    static constexpr int kSourceBlock = 512;

    AudioSource* source_;
    int channels_, maxFrames_;
    RateConverter converter_;
    std::vector<std::vector<float>> input_;     // one source block per channel
    std::vector<std::vector<float>> converted_;  // one process() result per channel
    std::vector<std::vector<float>> ring_;       // converted frames not yet delivered
    int ringStart_ = 0, ringCount_ = 0;
    int64_t pulled_ = 0;
};

}  // namespace parlova
