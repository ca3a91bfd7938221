#include "engine/LiveGraph.h"

#include "engine/ChainOutput.h"

#include <algorithm>

namespace parlova {

class LiveGraph::RecordingListener : public CaptureListener {
public:
    explicit RecordingListener(TapRelay& relay) : relay_(relay) {}
    void capturedAudio(const float* mono, int frames) noexcept override { relay_.push(&mono, frames); }

private:
    TapRelay& relay_;
};

namespace {

// The output device may start asking for audio a while after the microphone
// started delivering. Whatever the bridge gathered before the first request
// would otherwise stay as extra delay (the bridge only trims a large backlog
// down to two cushions), so the first request starts the bridge afresh.
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

TapRelay::Handler monoHandler(LiveGraph::BlockHandler handler) {
    return [handler = std::move(handler)](const float* const* channels, int, int frames) {
        if (handler) handler(channels[0], frames);
    };
}
}  // namespace

LiveGraph::LiveGraph(const LiveRoute& route, const Voice& voice, BlockHandler recordTap, BlockHandler meterTap)
    : route_(route), format_(DeviceOutput::formatFor(route.output)) {
    recordRelay_ = std::make_unique<TapRelay>(1, kTapFrames, monoHandler(std::move(recordTap)));
    meterRelay_ = std::make_unique<TapRelay>(1, kTapFrames, monoHandler(std::move(meterTap)));
    recordingListener_ = std::make_unique<RecordingListener>(*recordRelay_);

    // The microphone is opened at the output's rate so the server resamples it.
    mic_ = std::make_unique<MicCapture>(route.mic, format_.sampleRate);
    mic_->setListener(recordingListener_.get());
    connect(mic_.get(), &MicCapture::deviceLost, this, &LiveGraph::deviceLost);
    connect(mic_.get(), &MicCapture::failed, this, &LiveGraph::failed);

    chain_ = std::make_shared<VoiceChain>(voice, mic_->sharedBridge().get(), AudioFormat{format_.sampleRate, 1});
    if (route.monitor) monitorBridge_ = std::make_shared<MicBridge>(format_.sampleRate, kMonitorCushionSeconds);
    renderer_ = std::make_unique<ChainOutput>(*chain_, *meterRelay_, &volume_, monitorBridge_.get());
    freshStart_ = std::make_unique<FreshStart>(*renderer_, mic_->bridge());

    output_ = std::make_unique<DeviceOutput>(route.output, format_, freshStart_.get(), kOutputLatencySeconds);
    connect(output_.get(), &DeviceOutput::deviceLost, this, &LiveGraph::deviceLost);
    connect(output_.get(), &DeviceOutput::failed, this, &LiveGraph::failed);
    if (route.monitor) {
        // The monitor runs at the bridge's rate; the server resamples for the device.
        monitor_ = std::make_unique<DeviceOutput>(*route.monitor, AudioFormat{format_.sampleRate, 2},
                                                  monitorBridge_.get());
        connect(monitor_.get(), &DeviceOutput::deviceLost, this, &LiveGraph::deviceLost);
        connect(monitor_.get(), &DeviceOutput::failed, this, &LiveGraph::failed);
    }
}

LiveGraph::~LiveGraph() {
    stop();
    // Streams go first (nothing pulls the chain any more), then the chain and taps.
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
    if (output_) output_->stop();
    if (mic_) mic_->stop();
}

}  // namespace parlova
