#include "engine/LiveGraph.h"

#include <algorithm>
#include <cmath>

namespace parlova {

class LiveGraph::RecordingListener : public CaptureListener {
public:
    explicit RecordingListener(TapRelay& relay) : relay_(relay) {}
    void capturedAudio(const float* mono, int frames) noexcept override { relay_.push(mono, frames); }

private:
    TapRelay& relay_;
};

namespace {

// The output may start asking for audio a while after the microphone started
// delivering. Whatever the bridge gathered before the first request would
// otherwise stay as extra delay (the bridge only trims a large backlog down to
// one cushion), so the first request starts the bridge afresh. Reader side.
class FreshStart : public AudioSource {
public:
    FreshStart(AudioSource& inner, MicBridge& bridge) : inner_(inner), bridge_(bridge) {}
    int32_t pull(BufferList& out, int frames) noexcept override {
        if (!started_) {
            started_ = true;
            bridge_.reset();
        }
        return inner_.pull(out, frames);
    }

private:
    AudioSource& inner_;
    MicBridge& bridge_;
    bool started_ = false;
};

}  // namespace

LiveGraph::LiveGraph(AudioBackend& backend, const LiveRoute& route, const VoiceStageFactory& stage,
                     BlockHandler recordTap, BlockHandler meterTap, const StreamFaults& faults,
                     const RouteBuffering& buffering)
    : route_(route) {
    recordRelay_ = std::make_unique<TapRelay>(kTapFrames, std::move(recordTap), kTapBlocks, kSampleRate);
    meterRelay_ = std::make_unique<TapRelay>(kTapFrames, std::move(meterTap), kTapBlocks, kSampleRate);
    recordingListener_ = std::make_unique<RecordingListener>(*recordRelay_);

    mic_ = std::make_unique<MicCapture>(backend, route.mic, kSampleRate, faults, buffering.micBlockSeconds);
    mic_->addListener(recordingListener_.get());
    stage_ = stage(mic_->bridge(), kSampleRate);
    mic_->bridge().setCushion(static_cast<int>(std::lround(buffering.micCushionSeconds * kSampleRate)));
    if (route.monitor) monitorBridge_ = std::make_shared<MicBridge>(kSampleRate, buffering.monitorCushionSeconds);
    sounds_ = std::make_unique<SoundMixer>(kSampleRate);
    renderer_ = std::make_unique<ChainOutput>(*stage_, *meterRelay_, kSampleRate, monitorBridge_.get(), sounds_.get());
    freshStart_ = std::make_unique<FreshStart>(*renderer_, mic_->bridge());
    output_ = backend.openOutput(route.output, AudioFormat{kSampleRate, 2}, *freshStart_, buffering.outputBufferSeconds, faults);
    if (route.monitor)
        monitor_ = backend.openOutput(*route.monitor, AudioFormat{kSampleRate, 2}, *monitorBridge_,
                                      buffering.outputBufferSeconds, faults);
}

LiveGraph::~LiveGraph() {
    // Streams go first (nothing pulls the stage any more), then the stage and taps.
    monitor_.reset();
    output_.reset();
    mic_.reset();
}

void LiveGraph::start() {
    mic_->start();
    output_->start();
    if (monitor_) monitor_->start();
}

void LiveGraph::stop() {
    if (monitor_) monitor_->stop();
    output_->stop();
    mic_->stop();
}

double LiveGraph::delaySeconds() const {
    // What the stage read ahead has left the bridge but not reached the output yet.
    return mic_->latencySeconds() + mic_->bridge().count() / kSampleRate + stage_->readAheadSeconds() +
           stage_->latencySeconds() + output_->latencySeconds();
}

}  // namespace parlova
