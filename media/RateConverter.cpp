#include "media/RateConverter.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <numeric>

namespace parlova {

namespace {

// libsoxr releases output in blocks; one call can hand back up to a block's
// worth on top of the input it was given. Its blocks stay well under this many
// input frames at every rate pair from 8 to 192 kHz.
constexpr int kBlockInputFrames = 16384;

// The silent start-up run lasts at least this many input frames: long enough
// for libsoxr's buffers to reach the largest size they take in a steady stream.
constexpr int64_t kStartUpInputFrames = 32768;

bool integral(double rate) { return rate == std::floor(rate) && rate < 1e9; }

}  // namespace

RateConverter::RateConverter(double inputRate, double outputRate, int channels, int maxInputFrames)
    : inputRate_(inputRate),
      outputRate_(outputRate),
      channels_(std::clamp(channels, 1, kMaxChannels)),
      maxInputFrames_(std::max(1, maxInputFrames)),
      maxOutputFrames_(maxInputFrames_) {}

std::unique_ptr<RateConverter> RateConverter::create(double inputRate, double outputRate, int channels,
                                                     int maxInputFrames, Quality quality) noexcept {
    if (!(inputRate > 0) || !(outputRate > 0) || !std::isfinite(inputRate) || !std::isfinite(outputRate))
        return nullptr;
    try {
        std::unique_ptr<RateConverter> converter(new RateConverter(inputRate, outputRate, channels, maxInputFrames));
        if (inputRate != outputRate && !converter->open(quality)) return nullptr;
        return converter;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool RateConverter::open(Quality quality) {
    const double ratio = outputRate_ / inputRate_;
    maxOutputFrames_ = static_cast<int>(std::ceil((maxInputFrames_ + kBlockInputFrames) * ratio)) + 16;

    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_S, SOXR_FLOAT32_S);
    const soxr_quality_spec_t spec = quality == Quality::linearPhase ? soxr_quality_spec(SOXR_HQ, SOXR_LINEAR_PHASE)
                                                                     : soxr_quality_spec(SOXR_MQ, SOXR_MINIMUM_PHASE);
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    converter_ = soxr_create(inputRate_, outputRate_, static_cast<unsigned>(channels_), &error, &io, &spec, &runtime);
    if (converter_ == nullptr || error != nullptr) {
        if (converter_ != nullptr) soxr_delete(converter_);
        converter_ = nullptr;
        return false;
    }

    // libsoxr sizes its buffers as the stream flows, so the first blocks would
    // allocate. Run silence through it here instead, in the block size the
    // stream will use. Its output frame k belongs to input time k / ratio, so
    // when the silent run is a whole number of periods of the two rates (a
    // multiple of inputRate / gcd), the real signal starts at an exact output
    // frame: everything before it is dropped, and the result is the same as
    // from a fresh converter. Rates that are not whole numbers skip the run.
    if (!integral(inputRate_) || !integral(outputRate_)) return true;
    const auto in = static_cast<int64_t>(inputRate_), out = static_cast<int64_t>(outputRate_);
    const int64_t period = in / std::gcd(in, out);
    const int64_t silent = (std::max<int64_t>(kStartUpInputFrames, 8LL * maxInputFrames_) + period - 1) / period * period;
    std::vector<float> zeros(static_cast<size_t>(maxInputFrames_), 0.0f);
    std::vector<std::vector<float>> discard(static_cast<size_t>(channels_),
                                            std::vector<float>(static_cast<size_t>(maxOutputFrames_)));
    std::vector<const float*> zeroPointers(static_cast<size_t>(channels_), zeros.data());
    std::vector<float*> discardPointers;
    for (auto& channel : discard) discardPointers.push_back(channel.data());
    int64_t delivered = 0;
    for (int64_t fed = 0; fed < silent;) {
        const int frames = static_cast<int>(std::min<int64_t>(maxInputFrames_, silent - fed));
        const int got = run(zeroPointers.data(), frames, discardPointers.data());
        if (got < 0) return false;
        delivered += got;
        fed += frames;
    }
    skip_ = std::max<int64_t>(0, silent / period * (out / std::gcd(in, out)) - delivered);
    return true;
}

RateConverter::~RateConverter() {
    if (converter_ != nullptr) soxr_delete(converter_);
}

int RateConverter::run(const float* const* input, int frames, float* const* output) noexcept {
    // Pointer arrays on the stack: libsoxr takes one pointer per channel.
    const void* in[kMaxChannels];
    void* out[kMaxChannels];
    const int capacity = maxOutputFrames_;
    int written = 0;
    int consumed = 0;
    // libsoxr takes less input than offered only when the output space runs
    // out; the capacity is sized so that does not happen, and if it does the
    // loop goes on while there is room.
    do {
        for (int c = 0; c < channels_; ++c) {
            in[c] = input[c] + consumed;
            out[c] = output[c] + written;
        }
        size_t used = 0, made = 0;
        const soxr_error_t error = soxr_process(converter_, in, static_cast<size_t>(frames - consumed), &used, out,
                                                static_cast<size_t>(capacity - written), &made);
        if (error != nullptr) return -1;
        consumed += static_cast<int>(used);
        written += static_cast<int>(made);
        if (used == 0 && made == 0 && consumed < frames) return -1;  // stuck: no room left
    } while (consumed < frames && written < capacity);
    return consumed == frames ? written : -1;
}

int RateConverter::dropStartUp(float* const* output, int got) noexcept {
    // Still inside the silent start-up run: drop what belongs to it.
    if (skip_ == 0 || got <= 0) return got;
    const int drop = static_cast<int>(std::min<int64_t>(skip_, got));
    skip_ -= drop;
    for (int c = 0; c < channels_; ++c)
        std::memmove(output[c], output[c] + drop, static_cast<size_t>(got - drop) * sizeof(float));
    return got - drop;
}

int64_t RateConverter::wholeOutput() const noexcept {
    if (integral(inputRate_) && integral(outputRate_)) {
        const auto in = static_cast<int64_t>(inputRate_), out = static_cast<int64_t>(outputRate_);
        return (framesIn_ * out + in - 1) / in;
    }
    return static_cast<int64_t>(std::ceil(static_cast<double>(framesIn_) * outputRate_ / inputRate_));
}

int RateConverter::process(const float* const* input, int frames, float* const* output) noexcept {
    if (frames < 0 || frames > maxInputFrames_ || input == nullptr || output == nullptr || ending_) return -1;
    if (converter_ == nullptr) {
        for (int c = 0; c < channels_; ++c)
            if (output[c] != input[c]) std::memmove(output[c], input[c], static_cast<size_t>(frames) * sizeof(float));
        return frames;
    }
    const int got = dropStartUp(output, run(input, frames, output));
    if (got < 0) return -1;
    framesIn_ += frames;
    framesOut_ += got;
    return got;
}

int RateConverter::flush(float* const* output) noexcept {
    if (output == nullptr) return -1;
    ending_ = true;
    if (converter_ == nullptr) return 0;
    // What is still owed: up to ceil(framesIn * ratio) in all.
    const int wanted = static_cast<int>(std::clamp<int64_t>(wholeOutput() - framesOut_, 0, maxOutputFrames_));
    void* out[kMaxChannels];
    for (int c = 0; c < channels_; ++c) out[c] = output[c];
    int written = 0;
    while (written == 0 && wanted > 0 && !drained_) {
        // No input: libsoxr takes that as the end and hands out the filter's tail.
        size_t made = 0;
        if (soxr_process(converter_, nullptr, 0, nullptr, out, static_cast<size_t>(maxOutputFrames_), &made) != nullptr)
            return -1;
        drained_ = made == 0;
        written = dropStartUp(output, static_cast<int>(made));
    }
    // libsoxr's own count can be a frame short of or beyond the whole length:
    // cut what lies past the input's end, and once it is empty, pad with silence.
    written = std::min(written, wanted);
    if (drained_ && written < wanted) {
        for (int c = 0; c < channels_; ++c)
            std::fill(output[c] + written, output[c] + wanted, 0.0f);
        written = wanted;
    }
    framesOut_ += written;
    return written;
}

bool RateConverter::convert(const float* input, size_t count, std::vector<float>& output) {
    if (channels_ != 1) return false;
    if (scratch_.empty()) scratch_.resize(static_cast<size_t>(maxOutputFrames_));
    float* scratch = scratch_.data();
    while (count > 0) {
        const int frames = static_cast<int>(std::min<size_t>(count, static_cast<size_t>(maxInputFrames_)));
        const int got = process(&input, frames, &scratch);
        if (got < 0) return false;
        output.insert(output.end(), scratch, scratch + got);
        input += frames;
        count -= static_cast<size_t>(frames);
    }
    return true;
}

std::vector<float> RateConverter::convert(const float* input, size_t count) {
    std::vector<float> output;
    convert(input, count, output);
    return output;
}

std::unique_ptr<RateConvertingSource> RateConvertingSource::create(AudioSource* source, int channels,
                                                                   double sourceRate, double outputRate,
                                                                   int maxFrames) noexcept {
    channels = std::clamp(channels, 1, kMaxChannels);
    auto converter = RateConverter::create(sourceRate, outputRate, channels, kSourceBlock);
    if (!converter) return nullptr;
    try {
        return std::unique_ptr<RateConvertingSource>(
            new RateConvertingSource(source, channels, std::max(1, maxFrames), std::move(converter)));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

RateConvertingSource::RateConvertingSource(AudioSource* source, int channels, int maxFrames,
                                           std::unique_ptr<RateConverter> converter)
    : source_(source), channels_(channels), maxFrames_(maxFrames), converter_(std::move(converter)) {
    if (converter_->passesThrough()) return;
    const auto perChannel = [&](int frames) {
        return std::vector<std::vector<float>>(static_cast<size_t>(channels_),
                                               std::vector<float>(static_cast<size_t>(frames), 0.0f));
    };
    input_ = perChannel(kSourceBlock);
    converted_ = perChannel(converter_->maxOutputFrames());
    ring_ = perChannel(maxFrames_ + converter_->maxOutputFrames());
}

int32_t RateConvertingSource::pull(BufferList& out, int frames) noexcept {
    if (source_ == nullptr || frames < 0 || frames > maxFrames_) return status::noConnection;
    if (converter_->passesThrough()) {
        const int32_t result = source_->pull(out, frames);
        if (result == status::ok) pulled_ += frames;
        return result;
    }
    const int capacity = static_cast<int>(ring_[0].size());
    // A converter that has taken this much without a frame to show is broken.
    const int64_t giveUpAfter = pulled_ + 4 * static_cast<int64_t>(kSourceBlock) +
                                static_cast<int64_t>(std::ceil((frames + 2.0 * kBlockInputFrames) *
                                                               converter_->inputRate() / converter_->outputRate()));
    while (ringCount_ < frames) {
        if (pulled_ > giveUpAfter) return status::renderError;
        BufferList block;
        block.count = channels_;
        for (int c = 0; c < channels_; ++c) {
            block.data[c] = input_[static_cast<size_t>(c)].data();
            block.byteSize[c] = static_cast<uint32_t>(kSourceBlock) * sizeof(float);
        }
        const int32_t result = source_->pull(block, kSourceBlock);
        if (result != status::ok) return result;
        pulled_ += kSourceBlock;
        const float* in[kMaxChannels];
        float* converted[kMaxChannels];
        for (int c = 0; c < channels_; ++c) {
            in[c] = input_[static_cast<size_t>(c)].data();
            converted[c] = converted_[static_cast<size_t>(c)].data();
        }
        const int got = converter_->process(in, kSourceBlock, converted);
        if (got < 0) return status::renderError;
        // Append to the ring in at most two pieces.
        int at = (ringStart_ + ringCount_) % capacity;
        for (int done = 0; done < got;) {
            const int piece = std::min(got - done, capacity - at);
            for (int c = 0; c < channels_; ++c)
                std::memcpy(ring_[static_cast<size_t>(c)].data() + at, converted[c] + done,
                            static_cast<size_t>(piece) * sizeof(float));
            done += piece;
            at = (at + piece) % capacity;
        }
        ringCount_ += got;
    }
    for (int done = 0; done < frames;) {
        const int piece = std::min(frames - done, capacity - ringStart_);
        for (int c = 0; c < out.count; ++c) {
            if (out.data[c] == nullptr) continue;
            // Wider outputs repeat the last channel.
            const auto& from = ring_[static_cast<size_t>(std::min(c, channels_ - 1))];
            std::memcpy(out.data[c] + done, from.data() + ringStart_, static_cast<size_t>(piece) * sizeof(float));
        }
        done += piece;
        ringStart_ = (ringStart_ + piece) % capacity;
    }
    ringCount_ -= frames;
    return status::ok;
}

}  // namespace parlova
