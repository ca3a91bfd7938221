#include "media/StreamResampler.h"

#include <soxr.h>

#include <cmath>

namespace parlova {

std::unique_ptr<StreamResampler> StreamResampler::create(double inputRate, double outputRate) {
    if (!(inputRate > 0) || !(outputRate > 0)) return nullptr;
    std::unique_ptr<StreamResampler> resampler(new StreamResampler);
    resampler->ratio_ = outputRate / inputRate;
    if (inputRate == outputRate) return resampler;
    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_MQ, SOXR_MINIMUM_PHASE);
    resampler->converter_ = soxr_create(inputRate, outputRate, 1, &error, &io, &quality, nullptr);
    if (error || !resampler->converter_) return nullptr;
    return resampler;
}

StreamResampler::~StreamResampler() {
    if (converter_) soxr_delete(converter_);
}

std::vector<float> StreamResampler::convert(const std::vector<float>& input) {
    return convert(input.data(), input.size());
}

std::vector<float> StreamResampler::convert(const float* input, size_t count) {
    if (count == 0) return {};
    if (!converter_) return std::vector<float>(input, input + count);
    std::vector<float> output(size_t(std::ceil(double(count) * ratio_)) + 64);
    size_t produced = 0;
    while (count > 0) {
        if (output.size() - produced < 64) output.resize(output.size() * 2);
        size_t used = 0, made = 0;
        if (soxr_process(converter_, input, count, &used, output.data() + produced, output.size() - produced, &made))
            break;
        input += used;
        count -= used;
        produced += made;
        if (used == 0 && made == 0) break;
    }
    output.resize(produced);
    return output;
}

}  // namespace parlova
