#pragma once
// One running live route: microphone -> bridge -> voice stage -> output
// device, with an optional monitor output fed through a second bridge (call
// mode), a tap of the dry microphone for recording and a tap of the stage's
// output for the level meter. The output device's audio thread pulls the
// whole route. Everything runs at the chain's fixed rate; the server converts
// to and from the devices' own rates.
//
// Built, started, stopped and destroyed on a job thread (opening streams waits
// on the server); the stream faults arrive on the audio thread.
#include "devices/AudioBackend.h"
#include "engine/ChainOutput.h"
#include "engine/MicCapture.h"
#include "engine/TapRelay.h"
#include "engine/VoiceStage.h"

#include <functional>
#include <memory>
#include <optional>

namespace parlova {

// How much the route keeps queued where one clock hands over to another. With
// the voice stage's own delay that is the delay the route adds; what is queued
// is also what rides out a moment in which an audio thread is not scheduled.
struct RouteBuffering {
    double micBlockSeconds;        // what the microphone delivers at a time
    double micCushionSeconds;      // the microphone bridge's cushion
    double monitorCushionSeconds;  // the monitor bridge's cushion (call mode)
    double outputBufferSeconds;    // what each output keeps queued at the server
    static constexpr RouteBuffering normal() { return {0.01, 0.02, 0.03, 0.02}; }
    // For the low-delay setting: the microphone delivers in half the time
    // and the monitor's cushion is halved; the microphone's cushion gives up
    // a quarter and the output keeps its buffer. Less of either ran dry on a
    // busy machine, and the shifter's shorter block saves more anyway.
    static constexpr RouteBuffering low() { return {0.005, 0.015, 0.015, 0.02}; }
};

struct LiveRoute {
    DeviceEntry mic;
    DeviceEntry output;
    std::optional<DeviceEntry> monitor;
    bool isCall = false;
};

class LiveGraph {
public:
    static constexpr double kSampleRate = kChainSampleRate;
    static constexpr int kTapFrames = 1024;
    static constexpr int kTapBlocks = 64;  // what each tap's ring holds: over a second

    using BlockHandler = std::function<void(const float* mono, int frames)>;

    // Opens every device of the route (nothing runs yet). `recordTap` receives
    // the dry microphone and `meterTap` the stage's output, both on a tap
    // thread. A stage that reads ahead of its output (the clean mic) gets that
    // much more cushion in the microphone bridge. Throws VoiceEngineError.
    LiveGraph(AudioBackend& backend, const LiveRoute& route, const VoiceStageFactory& stage, BlockHandler recordTap,
              BlockHandler meterTap, const StreamFaults& faults,
              const RouteBuffering& buffering = RouteBuffering::normal());
    ~LiveGraph();

    void start();
    void stop();

    // Main-mixer volume: 1 while live, 0 while only recording (ramped).
    void setAudible(bool audible) { renderer_->setVolume(audible ? 1.0f : 0.0f); }
    // The same, without a ramp: before start().
    void setInitialAudible(bool audible) { renderer_->jumpTo(audible ? 1.0f : 0.0f); }

    const LiveRoute& route() const { return route_; }
    VoiceStage& stage() { return *stage_; }
    const VoiceStage& stage() const { return *stage_; }
    std::shared_ptr<VoiceChain> chain() const { return stage_->chain(); }
    // The dry microphone as it is recorded: mono at the route's rate.
    AudioFormat recordingFormat() const { return {kSampleRate, 1}; }
    std::shared_ptr<MicBridge> micBridge() const { return mic_->sharedBridge(); }
    MicCapture& mic() { return *mic_; }
    // The board sounds mixed into the output (and the monitor); the main
    // thread is its owner thread.
    SoundMixer& sounds() { return *sounds_; }

    // The delay from the microphone to the output as far as this process
    // knows it: both streams' reported latency, the bridge's fill, what the
    // stage reads ahead and the voice stage's own delay.
    double delaySeconds() const;
    // Times the server ran out of the output's audio (each one a break the listener hears).
    uint64_t outputUnderflows() const { return output_->underflows(); }

private:
    class RecordingListener;

    LiveRoute route_;
    std::unique_ptr<TapRelay> recordRelay_;
    std::unique_ptr<TapRelay> meterRelay_;
    std::unique_ptr<RecordingListener> recordingListener_;
    std::unique_ptr<MicCapture> mic_;
    std::unique_ptr<VoiceStage> stage_;
    std::shared_ptr<MicBridge> monitorBridge_;
    std::unique_ptr<SoundMixer> sounds_;
    std::unique_ptr<ChainOutput> renderer_;
    std::unique_ptr<AudioSource> freshStart_;
    std::unique_ptr<AudioStream> output_;
    std::unique_ptr<AudioStream> monitor_;
};

}  // namespace parlova
