#pragma once
// Sample-rate conversion of a live mono stream in blocks of any size
// (libsoxr, medium quality, minimum phase: a few milliseconds of delay, which
// matters more here than the last bit of the top octave). Used off the audio
// thread: it allocates its output.
#include <memory>
#include <vector>

struct soxr;

namespace parlova {

class StreamResampler {
public:
    // Nothing when libsoxr refuses the rates.
    static std::unique_ptr<StreamResampler> create(double inputRate, double outputRate);
    ~StreamResampler();
    StreamResampler(const StreamResampler&) = delete;
    StreamResampler& operator=(const StreamResampler&) = delete;

    double ratio() const { return ratio_; }
    // Converts the next block; what the filter holds back comes out with the
    // following blocks. Equal rates pass the samples through.
    std::vector<float> convert(const std::vector<float>& input);
    std::vector<float> convert(const float* input, size_t count);

private:
    StreamResampler() = default;
    soxr* converter_ = nullptr;
    double ratio_ = 1;
};

}  // namespace parlova
