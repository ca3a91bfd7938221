#pragma once
// Sample-rate conversion for planar float audio (libsoxr), the one converter
// the program uses: files and the effect chain, the file writer, and the live
// cloned-voice stream. Plus an AudioSource that pulls a source at one rate and
// delivers another.
//
// Quality: linearPhase (high quality, linear phase) is for files and the
// chain. It adds no delay: output frame k is the signal at input time
// k * inputRate / outputRate, so an impulse at input frame n comes out at
// output frame round(n * outputRate / inputRate). minimumPhase (medium
// quality, minimum phase) is for live streams, where the shorter filter holds
// back less input; its impulse response peaks a frame or two after that
// position, and the top of the band is a little less clean.
//
// Priming: the filter needs input beyond the output it delivers, and libsoxr
// works in blocks, so output comes in bursts. A fresh converter returns nothing
// until it holds roughly 600 to 8000 input frames (more when converting down to
// a low rate: 48 kHz -> 8 kHz takes about 7700 at linearPhase). After that,
// each process() call returns whatever is ready, between 0 and
// maxOutputFrames(). The RateConvertingSource hides the bursts: every pull
// delivers exactly the frames asked for, pulling its source as far ahead as the
// converter needs (its first pull reads the whole priming amount). A file or
// clip can be read ahead like that; a live microphone cannot, so that is for
// sources that are there.
//
// End of stream: flush() hands out what the filter still holds. Whole, a
// stream of N input frames comes out as ceil(N * outputRate / inputRate)
// frames: every output frame whose time lies inside the input.
//
// Errors: create() returns nothing when the rates can't be converted (not
// positive and finite, or refused by libsoxr) or memory runs out; it never
// throws. The caller says what that means for its user.
//
// Threads: create() allocates everything and runs the converter through
// silence once, so that libsoxr's internal buffers have reached their working
// size; afterwards process() and flush() neither allocate nor lock and can run
// on an audio thread. convert() grows a vector and is for other threads. One
// thread at a time per object.
#include "dsp/AudioBuffers.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct soxr;

namespace parlova {

class RateConverter {
public:
    enum class Quality { linearPhase, minimumPhase };

    // Converts `channels` (1..kMaxChannels) planar channels from `inputRate` to
    // `outputRate`, taking at most `maxInputFrames` frames per process() call.
    // Equal rates pass the samples through untouched.
    static std::unique_ptr<RateConverter> create(double inputRate, double outputRate, int channels,
                                                 int maxInputFrames, Quality quality = Quality::linearPhase) noexcept;
    ~RateConverter();
    RateConverter(const RateConverter&) = delete;
    RateConverter& operator=(const RateConverter&) = delete;

    double inputRate() const { return inputRate_; }
    double outputRate() const { return outputRate_; }
    int channels() const { return channels_; }
    int maxInputFrames() const { return maxInputFrames_; }
    // The most frames one process() or flush() call writes; size output buffers to this.
    int maxOutputFrames() const { return maxOutputFrames_; }
    bool passesThrough() const { return converter_ == nullptr; }

    // Takes all `frames` (0..maxInputFrames) of `input` (one pointer per
    // channel) and writes the output that is ready, at most maxOutputFrames(),
    // to `output`; returns the frames written, or -1 when libsoxr fails, the
    // arguments are out of range or the stream was flushed. Output that did not
    // fit stays inside and comes first at the next call.
    int process(const float* const* input, int frames, float* const* output) noexcept;

    // Ends the stream and writes the next part of what the filter still holds,
    // at most maxOutputFrames(); call until it returns 0 (-1: libsoxr failed).
    // The stream then takes no more input.
    int flush(float* const* output) noexcept;

    // Off the audio thread, for a one-channel converter: converts `count`
    // samples (any number) and appends the output that is ready to `output`.
    // False when the converter has more channels or fails.
    bool convert(const float* input, size_t count, std::vector<float>& output);
    std::vector<float> convert(const float* input, size_t count);

private:
    RateConverter(double inputRate, double outputRate, int channels, int maxInputFrames);
    bool open(Quality quality);
    int run(const float* const* input, int frames, float* const* output) noexcept;
    int dropStartUp(float* const* output, int got) noexcept;
    // ceil(framesIn_ * outputRate / inputRate): the whole stream's output length.
    int64_t wholeOutput() const noexcept;

    double inputRate_, outputRate_;
    int channels_, maxInputFrames_, maxOutputFrames_;
    soxr* converter_ = nullptr;
    // Output frames still to drop after the silent start-up run (see open()).
    int64_t skip_ = 0;
    // The real stream so far: input taken and output handed out.
    int64_t framesIn_ = 0, framesOut_ = 0;
    bool ending_ = false, drained_ = false;
    std::vector<float> scratch_;  // convert()'s output block, made at its first call
};

// Pulls `source` (which delivers `channels` channels at `sourceRate`) in blocks
// and hands on exactly the frames asked for at `outputRate`, converted at
// linearPhase. A source status other than ok is passed on; the frames already
// converted are kept for the next pull. Equal rates forward every pull
// straight to the source.
class RateConvertingSource : public AudioSource {
public:
    // `maxFrames`: the most frames one pull() asks for. Nothing when the rates
    // can't be converted or memory runs out; never throws.
    static std::unique_ptr<RateConvertingSource> create(AudioSource* source, int channels, double sourceRate,
                                                        double outputRate, int maxFrames = 4096) noexcept;

    int32_t pull(BufferList& out, int frames) noexcept override;

    const RateConverter& converter() const { return *converter_; }
    // Frames pulled from the source so far.
    int64_t sourceFramesPulled() const { return pulled_; }

private:
    static constexpr int kSourceBlock = 512;

    RateConvertingSource(AudioSource* source, int channels, int maxFrames, std::unique_ptr<RateConverter> converter);

    AudioSource* source_;
    int channels_, maxFrames_;
    std::unique_ptr<RateConverter> converter_;
    std::vector<std::vector<float>> input_;     // one source block per channel
    std::vector<std::vector<float>> converted_;  // one process() result per channel
    std::vector<std::vector<float>> ring_;       // converted frames not yet delivered
    int ringStart_ = 0, ringCount_ = 0;
    int64_t pulled_ = 0;
};

}  // namespace parlova
