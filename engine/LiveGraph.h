#pragma once
// One running live route: microphone -> bridge -> voice chain -> output device,
// with an optional monitor output fed through a second bridge (call mode), a
// tap of the dry microphone for recording and a tap of the chain output for
// the level meter. The output device's I/O thread pulls the whole chain.
#include "engine/DeviceOutput.h"
#include "engine/MicCapture.h"
#include "engine/TapRelay.h"
#include "engine/VoiceChain.h"

#include <QObject>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace parlova {

struct LiveRoute {
    uint32_t mic = 0;
    uint32_t output = 0;
    std::optional<uint32_t> monitor;
    bool isCall = false;
};

class LiveGraph : public QObject {
    Q_OBJECT
public:
    static constexpr double kMonitorCushionSeconds = 0.03;
    static constexpr int kTapFrames = 1024;
    // The output keeps this much audio queued at the server: small, since it
    // adds to the delay between speaking and being heard.
    static constexpr double kOutputLatencySeconds = 0.01;

    using BlockHandler = std::function<void(const float* mono, int frames)>;

    // Opens every device of the route (nothing runs yet). `recordTap` receives
    // the dry microphone and `meterTap` the chain output, both on a tap thread.
    // Throws VoiceEngineError.
    LiveGraph(const LiveRoute& route, const Voice& voice, BlockHandler recordTap, BlockHandler meterTap);
    ~LiveGraph() override;

    // Starts the microphone, the output and the monitor; throws
    // "Couldn't start the microphone (error N)." or "Couldn't start the output (error N).".
    void start();
    void stop();

    // Main-mixer volume: 1 while live, 0 while only recording.
    void setAudible(bool audible) { volume_.store(audible ? 1.0f : 0.0f, std::memory_order_relaxed); }

    const LiveRoute& route() const { return route_; }
    std::shared_ptr<VoiceChain> chain() const { return chain_; }
    // The format of the dry microphone as it is recorded (mono at the route's rate).
    AudioFormat recordingFormat() const { return {format_.sampleRate, 1}; }
    const AudioFormat& outputFormat() const { return format_; }
    MicCapture& mic() { return *mic_; }
    std::shared_ptr<MicBridge> micBridge() const { return mic_->sharedBridge(); }
    DeviceOutput& output() { return *output_; }

signals:
    void deviceLost();
    void failed(const QString& message);

private:
    class RecordingListener;

    LiveRoute route_;
    AudioFormat format_;
    std::atomic<float> volume_{1.0f};
    std::unique_ptr<TapRelay> recordRelay_;
    std::unique_ptr<TapRelay> meterRelay_;
    std::unique_ptr<RecordingListener> recordingListener_;
    std::unique_ptr<MicCapture> mic_;
    std::shared_ptr<VoiceChain> chain_;
    std::shared_ptr<MicBridge> monitorBridge_;
    std::unique_ptr<AudioSource> renderer_;
    std::unique_ptr<AudioSource> freshStart_;
    std::unique_ptr<DeviceOutput> output_;
    std::unique_ptr<DeviceOutput> monitor_;
};

}  // namespace parlova
