#include "media/RateConverter.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <stdexcept>

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
      maxOutputFrames_(maxInputFrames_) {
    if (!(inputRate > 0) || !(outputRate > 0) || !std::isfinite(inputRate) || !std::isfinite(outputRate))
        throw std::runtime_error("The sample rate conversion was asked for an invalid rate.");
    if (inputRate == outputRate) return;

    const double ratio = outputRate / inputRate;
    maxOutputFrames_ = static_cast<int>(std::ceil((maxInputFrames_ + kBlockInputFrames) * ratio)) + 16;

    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_S, SOXR_FLOAT32_S);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, SOXR_LINEAR_PHASE);
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    converter_ = soxr_create(inputRate, outputRate, static_cast<unsigned>(channels_), &error, &io, &quality,
                             &runtime);
    if (converter_ == nullptr || error != nullptr) {
        if (converter_ != nullptr) soxr_delete(converter_);
        converter_ = nullptr;
        throw std::runtime_error("The sample rate conversion could not be set up.");
    }
    discard_.assign(static_cast<size_t>(channels_), std::vector<float>(static_cast<size_t>(maxOutputFrames_)));

    // libsoxr sizes its buffers as the stream flows, so the first blocks would
    // allocate. Run silence through it here instead, in the block size the
    // stream will use. Its output frame k belongs to input time k / ratio, so
    // when the silent run is a whole number of periods of the two rates (a
    // multiple of inputRate / gcd), the real signal starts at an exact output
    // frame: everything before it is dropped, and the result is the same as
    // from a fresh converter. Rates that are not whole numbers skip the run.
    if (!integral(inputRate) || !integral(outputRate)) return;
    const auto in = static_cast<int64_t>(inputRate), out = static_cast<int64_t>(outputRate);
    const int64_t period = in / std::gcd(in, out);
    const int64_t silent = (std::max<int64_t>(kStartUpInputFrames, 8LL * maxInputFrames_) + period - 1) / period * period;
    std::vector<float> zeros(static_cast<size_t>(maxInputFrames_), 0.0f);
    std::vector<const float*> zeroPointers(static_cast<size_t>(channels_), zeros.data());
    std::vector<float*> discardPointers(static_cast<size_t>(channels_));
    for (int c = 0; c < channels_; ++c) discardPointers[static_cast<size_t>(c)] = discard_[static_cast<size_t>(c)].data();
    int64_t delivered = 0;
    for (int64_t fed = 0; fed < silent;) {
        const int frames = static_cast<int>(std::min<int64_t>(maxInputFrames_, silent - fed));
        const int got = convert(zeroPointers.data(), frames, discardPointers.data(), maxOutputFrames_);
        if (got < 0) throw std::runtime_error("The sample rate conversion failed to start.");
        delivered += got;
        fed += frames;
    }
    skip_ = std::max<int64_t>(0, silent / period * (out / std::gcd(in, out)) - delivered);
}

RateConverter::~RateConverter() {
    if (converter_ != nullptr) soxr_delete(converter_);
}

int RateConverter::convert(const float* const* input, int frames, float* const* output, int capacity) noexcept {
    // Pointer arrays on the stack: libsoxr takes one pointer per channel.
    const void* in[kMaxChannels];
    void* out[kMaxChannels];
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

int RateConverter::process(const float* const* input, int frames, float* const* output) noexcept {
    if (frames < 0 || frames > maxInputFrames_ || input == nullptr || output == nullptr) return -1;
    if (converter_ == nullptr) {
        for (int c = 0; c < channels_; ++c)
            if (output[c] != input[c]) std::memmove(output[c], input[c], static_cast<size_t>(frames) * sizeof(float));
        return frames;
    }
    if (skip_ > 0) {
        // Still inside the silent start-up run: drop what belongs to it.
        float* discard[kMaxChannels];
        for (int c = 0; c < channels_; ++c) discard[c] = discard_[static_cast<size_t>(c)].data();
        const int got = convert(input, frames, discard, maxOutputFrames_);
        if (got < 0) return -1;
        if (got <= skip_) {
            skip_ -= got;
            return 0;
        }
        const int keep = got - static_cast<int>(skip_);
        for (int c = 0; c < channels_; ++c)
            std::memcpy(output[c], discard[c] + skip_, static_cast<size_t>(keep) * sizeof(float));
        skip_ = 0;
        return keep;
    }
    return convert(input, frames, output, maxOutputFrames_);
}

RateConvertingSource::RateConvertingSource(AudioSource* source, int channels, double sourceRate, double outputRate,
                                           int maxFrames)
    : source_(source),
      channels_(std::clamp(channels, 1, kMaxChannels)),
      maxFrames_(std::max(1, maxFrames)),
      converter_(sourceRate, outputRate, channels_, kSourceBlock) {
    if (converter_.passesThrough()) return;
    const auto perChannel = [&](int frames) {
        return std::vector<std::vector<float>>(static_cast<size_t>(channels_),
                                               std::vector<float>(static_cast<size_t>(frames), 0.0f));
    };
    input_ = perChannel(kSourceBlock);
    converted_ = perChannel(converter_.maxOutputFrames());
    ring_ = perChannel(maxFrames_ + converter_.maxOutputFrames());
}

int32_t RateConvertingSource::pull(BufferList& out, int frames) noexcept {
    if (source_ == nullptr || frames < 0 || frames > maxFrames_) return status::noConnection;
    if (converter_.passesThrough()) {
        const int32_t result = source_->pull(out, frames);
        if (result == status::ok) pulled_ += frames;
        return result;
    }
    const int capacity = static_cast<int>(ring_[0].size());
    // A converter that has taken this much without a frame to show is broken.
    const int64_t giveUpAfter = pulled_ + 4 * static_cast<int64_t>(kSourceBlock) +
                                static_cast<int64_t>(std::ceil((frames + 2.0 * kBlockInputFrames) *
                                                               converter_.inputRate() / converter_.outputRate()));
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
        const int got = converter_.process(in, kSourceBlock, converted);
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
