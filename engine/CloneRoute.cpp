#include "engine/CloneRoute.h"

#include "cloning/VoiceCloner.h"
#include "engine/VoiceChain.h"
#include "media/RateConverter.h"

#include <QPointer>

#include <algorithm>
#include <cstring>

namespace parlova {

namespace {
constexpr double kVoiceQueueSeconds = 4.0;
constexpr double kMicRingSeconds = 2.0;
constexpr int kStreamBlock = 4096;  // the resamplers take longer blocks in pieces of this size
}  // namespace

CloneStreamBuffers::CloneStreamBuffers(double rate)
    : sampleRate(rate), mic(kMicRingSeconds, rate), voice(kVoiceQueueSeconds, rate) {
    voice.setCushionSeconds(CloneRoute::kCushionSeconds);
}

CloneVoiceStage::CloneVoiceStage(AudioSource& input, std::shared_ptr<CloneStreamBuffers> buffers)
    : input_(input), buffers_(std::move(buffers)), scratch_(new float[VoiceChain::kMaxFrames]()) {}

int32_t CloneVoiceStage::render(BufferList& out, int frames) noexcept {
    if (frames > VoiceChain::kMaxFrames || out.count < 1 || !out.data[0]) return status::noConnection;
    BufferList mono;
    mono.count = 1;
    mono.data[0] = scratch_.get();
    mono.byteSize[0] = uint32_t(frames * sizeof(float));
    if (input_.pull(mono, frames) != status::ok) std::fill(scratch_.get(), scratch_.get() + frames, 0.0f);
    buffers_->mic.write(scratch_.get(), size_t(frames));
    // Relaxed: a flag; a block either side of a change is fine.
    if (buffers_->bypass.load(std::memory_order_relaxed)) {
        for (int c = 0; c < out.count; ++c)
            if (out.data[c]) std::memcpy(out.data[c], scratch_.get(), size_t(frames) * sizeof(float));
        buffers_->voice.read(scratch_.get(), frames);  // drained, not heard
    } else {
        buffers_->voice.read(out, frames);
    }
    return status::ok;
}

double CloneVoiceStage::latencySeconds() const {
    if (buffers_->bypass.load(std::memory_order_relaxed)) return 0;
    return buffers_->blockSeconds.load(std::memory_order_relaxed) + buffers_->voice.cushionSeconds();
}

CloneRoute::CloneRoute(VoiceCloner* cloner, QObject* parent) : QObject(parent), cloner_(cloner) {}

CloneRoute::~CloneRoute() { stop(); }

VoiceStageFactory CloneRoute::stageFactory(double sampleRate) {
    buffers_ = std::make_shared<CloneStreamBuffers>(sampleRate);
    buffers_->bypass.store(bypass_, std::memory_order_relaxed);
    setBypass(bypass_);
    return [buffers = buffers_](AudioSource& input, double) -> std::unique_ptr<VoiceStage> {
        return std::make_unique<CloneVoiceStage>(input, buffers);
    };
}

void CloneRoute::setStarting(bool on) {
    if (starting_ == on) return;
    starting_ = on;
    emit isStreamStartingChanged();
}

void CloneRoute::start(const CloneTarget& voice, CloneLatency latency) {
    if (!cloner_ || !buffers_) return;
    const int generation = ++generation_;
    setStarting(true);
    std::shared_ptr<RateConverter> up = RateConverter::create(kStreamRate, buffers_->sampleRate, 1, kStreamBlock,
                                                               RateConverter::Quality::minimumPhase);
    buffers_->flowing.store(false, std::memory_order_relaxed);
    QPointer<CloneRoute> self(this);
    cloner_->setStreamReceiver([buffers = buffers_, up, self, generation](const float* samples, size_t count) {
        // The worker's reader thread: the only writer of the voice queue.
        const std::vector<float> converted = up->convert(samples, count);
        buffers->voice.write(converted.data(), converted.size());
        if (count > 0 && !buffers->flowing.exchange(true, std::memory_order_relaxed))
            QMetaObject::invokeMethod(self, [self, generation] {
                if (self && generation == self->generation_) emit self->speechFlowing();
            }, Qt::QueuedConnection);
    });
    cloner_->startStream(voice, latency, kStreamRate, [this, generation](const CloneResult& result) {
        if (generation != generation_) {
            // Stopped while starting: end the stream the worker has just begun.
            if (result.ok()) cloner_->stopStream();
            return;
        }
        if (!result.ok()) {
            setStarting(false);
            cloner_->setStreamReceiver(nullptr);
            emit failed(result.error);
            return;
        }
        const double block = result.reply->raw.value("block_seconds").toDouble(0.3);
        buffers_->blockSeconds.store(block, std::memory_order_relaxed);
        buffers_->mic.clear();  // what was said while the stream started is not sent
        // Streaming before "no longer starting" is told: whoever listens to
        // the one sees the other already true.
        streaming_ = true;
        setStarting(false);
        // The worker thread becomes the mic ring's only reader.
        std::shared_ptr<RateConverter> down = RateConverter::create(buffers_->sampleRate, kStreamRate, 1, kStreamBlock,
                                                                     RateConverter::Quality::minimumPhase);
        auto scratch = std::make_shared<std::vector<float>>(buffers_->mic.capacity());
        cloner_->setStreamSource([buffers = buffers_, down, scratch]() -> std::vector<float> {
            const size_t held = std::min(buffers->mic.count(), scratch->size());
            if (held == 0) return {};
            buffers->mic.read(scratch->data(), int(held));
            return down->convert(scratch->data(), held);
        });
    });
}

void CloneRoute::stop() {
    ++generation_;
    if ((streaming_ || starting_) && cloner_) {
        cloner_->setStreamSource(nullptr);
        cloner_->stopStream();
        cloner_->setStreamReceiver(nullptr);
    }
    streaming_ = false;
    setStarting(false);
}

void CloneRoute::setBypass(bool on) {
    bypass_ = on;
    if (!buffers_) return;
    buffers_->bypass.store(on, std::memory_order_relaxed);
    buffers_->voice.clear();
    buffers_->voice.setCushionSeconds(on ? kBypassCushionSeconds : kCushionSeconds);
}

}  // namespace parlova
