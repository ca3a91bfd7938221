#include "engine/CleanMic.h"

#include "dsp/DenormalsFlushed.h"

#include <algorithm>
#include <cmath>

namespace parlova {

CleanMicSource::CleanMicSource(AudioSource& input, int inputChannels, double sampleRate,
                               std::shared_ptr<const CleanMicControl> control, int inputMaxFrames)
    : input_(input), inputChannels_(std::clamp(inputChannels, 1, kMaxChannels)),
      inputMaxFrames_(std::max(1, inputMaxFrames)),
      frameSize_(SpeechDenoiser::frameSize()), control_(std::move(control)) {
    denoiser_.prepare();
    clicks_.prepare();
    gate_.prepare(sampleRate);
    inputBlock_.assign(static_cast<size_t>(inputChannels_), std::vector<float>(static_cast<size_t>(frameSize_)));
    frame_.assign(static_cast<size_t>(frameSize_), 0.0f);
    raw_.assign(static_cast<size_t>(frameSize_), 0.0f);
    rawBefore_.assign(static_cast<size_t>(frameSize_), 0.0f);
    ready_.assign(static_cast<size_t>(kMaxPullFrames + frameSize_), 0.0f);
    skip_ = denoiser_.delayFrames() + ClickSuppressor::delayFrames();
    frameGains_.assign(static_cast<size_t>(frameSize_), 0.0f);
    prepareGate(0);
}

int32_t CleanMicSource::takeInput(int64_t count) noexcept {
    while (count > 0) {
        const int want = static_cast<int>(std::min<int64_t>({count, frameSize_ - frameFill_, inputMaxFrames_}));
        BufferList block;
        block.count = inputChannels_;
        for (int c = 0; c < inputChannels_; ++c) block.data[c] = inputBlock_[static_cast<size_t>(c)].data();
        if (const int32_t result = input_.pull(block, want); result != status::ok) return result;
        const float scale = 1.0f / static_cast<float>(inputChannels_);
        for (int i = 0; i < want; ++i) {
            float sum = 0;
            for (int c = 0; c < inputChannels_; ++c) sum += block.data[c][i];
            frame_[static_cast<size_t>(frameFill_ + i)] = sum * scale;
        }
        frameFill_ += want;
        taken_ += want;
        count -= want;
        if (frameFill_ == frameSize_) {
            frameFill_ = 0;
            cleanFrame();
        }
    }
    return status::ok;
}

void CleanMicSource::cleanFrame() noexcept {
    gate_.setThresholdDb(control_->gateDb.load(std::memory_order_relaxed));
    clicks_.process(frame_.data(), frameSize_, raw_.data());
    denoiser_.process(frame_.data());
    // Keep what is waiting at the front, then append the new frame.
    if (readyStart_ > 0) {
        std::copy_n(ready_.begin() + readyStart_, readyCount_, ready_.begin());
        readyStart_ = 0;
    }
    const int dropped = std::min(skip_, frameSize_);
    const int fresh = frameSize_ - dropped;
    skip_ -= dropped;
    std::copy(frame_.begin() + dropped, frame_.end(), ready_.begin() + readyCount_);
    readyCount_ += fresh;
    // The gain decided at sample t belongs to sample t - lookahead.
    // The denoiser trails by one frame: this output is the frame before's
    // input (as it was before the click suppressor: the gate tells clicks
    // from lasting sound itself, and needs the room's true noise floor).
    gate_.analyse(frame_.data() + dropped, rawBefore_.data() + dropped, frameGains_.data(), fresh);
    std::swap(raw_, rawBefore_);
    const int64_t lookahead = gate_.lookaheadFrames();
    const auto ring = static_cast<int64_t>(gains_.size());
    for (int i = 0; i < fresh; ++i, ++analysed_)
        if (analysed_ >= lookahead) gains_[static_cast<size_t>((analysed_ - lookahead) % ring)] = frameGains_[static_cast<size_t>(i)];
}

int32_t CleanMicSource::pull(BufferList& out, int frames) noexcept {
    if (out.count < 1 || !out.data[0] || frames > kMaxPullFrames) return status::noConnection;
    const DenormalsFlushed flushed;  // the denoiser's network decays into them in silence
    // Keep exactly readAheadFrames() taken beyond what is handed on: the first
    // pull takes that much more, every later one just what it hands on, so
    // the input sees no larger pieces than the output asks for. That many
    // ahead always completes the frames that hold the output's samples.
    if (const int32_t result = takeInput(handedOn_ + frames + readAheadFrames() - taken_); result != status::ok)
        return result;
    handedOn_ += frames;
    const float* cleaned = ready_.data() + readyStart_;
    for (int c = 0; c < out.count; ++c)
        if (out.data[c]) std::copy_n(cleaned, frames, out.data[c]);
    readyStart_ += frames;
    readyCount_ -= frames;
    return status::ok;
}

void CleanMicSource::prepareGate(int delayFrames) {
    delayFrames_ = std::max(0, delayFrames);
    // From the oldest gain still wanted to the newest one known: the delay,
    // one pull, and what the source reads ahead.
    gains_.assign(static_cast<size_t>(delayFrames_ + 2 * kMaxPullFrames + 4 * frameSize_), gate_.floorGain());
}

float CleanMicSource::gainAt(int64_t sample) const noexcept {
    const int64_t known = analysed_ - gate_.lookaheadFrames();  // gains exist below this
    if (sample < 0 || known <= 0) return gate_.floorGain();
    // A stage with less delay than the lookahead gets the newest decision.
    sample = std::min(sample, known - 1);
    return gains_[static_cast<size_t>(sample % static_cast<int64_t>(gains_.size()))];
}

void CleanMicSource::gateOutput(BufferList& out, int frames) noexcept {
    for (int i = 0; i < frames; ++i) {
        const float gain = gainAt(gated_ + i - delayFrames_);
        for (int c = 0; c < out.count; ++c)
            if (out.data[c]) out.data[c][i] *= gain;
    }
    gated_ += frames;
}

CleanMicStage::CleanMicStage(AudioSource& input, double sampleRate, const VoiceStageFactory& inner,
                             std::shared_ptr<const CleanMicControl> control)
    : clean_(std::make_unique<CleanMicSource>(input, 1, sampleRate, std::move(control))),
      inner_(inner(*clean_, sampleRate)) {
    clean_->prepareGate(static_cast<int>(std::lround(inner_->latencySeconds() * sampleRate)));
}

double CleanMicStage::readAheadSeconds() const {
    return clean_->readAheadFrames() / SpeechDenoiser::kSampleRate + inner_->readAheadSeconds();
}

int32_t CleanMicStage::render(BufferList& out, int frames) noexcept {
    const int32_t result = inner_->render(out, frames);
    if (result == status::ok) clean_->gateOutput(out, frames);
    return result;
}

VoiceStageFactory CleanMicStage::wrap(VoiceStageFactory inner, std::shared_ptr<const CleanMicControl> control) {
    return [inner = std::move(inner), control = std::move(control)](AudioSource& input, double sampleRate)
               -> std::unique_ptr<VoiceStage> {
        return std::make_unique<CleanMicStage>(input, sampleRate, inner, control);
    };
}

}  // namespace parlova
