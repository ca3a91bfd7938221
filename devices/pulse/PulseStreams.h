#pragma once
// The PulseAudio record and playback streams behind AudioStream. Both live on
// the shared stream connection, whose loop thread is the audio thread: the
// record callback hands each fragment to the capture sink, the write callback
// pulls the render source for exactly what the server asks for.
//
// Constructors wait until the stream is ready (call them from a job thread);
// start/stop only send the request. Faults are reported once, from the loop
// thread, when the stream fails after it was ready.
#include "devices/AudioBackend.h"
#include "devices/pulse/PulseLoop.h"

#include <atomic>
#include <memory>

namespace parlova::pulse {

class PulseStream : public AudioStream {
public:
    ~PulseStream() override;
    void start() override;
    void stop() override;
    double latencySeconds() const override { return latency_.load(std::memory_order_relaxed); }
    uint64_t underflows() const override { return underflows_.load(std::memory_order_relaxed); }

protected:
    PulseStream(std::shared_ptr<PulseLoop> loop, StreamFaults faults);
    // With the loop locked: connects `stream_` (already created) and waits
    // until it is ready; throws with `what` on failure.
    void waitReady(const char* what, ErrorCode refusal);
    static void onLatencyUpdate(pa_stream* s, void* userdata);
    void noteLatency(pa_stream* s) noexcept;
    // Audio thread: asks the server for a fresh timing report now and then.
    void askForTiming(pa_stream* s) noexcept;
    static constexpr uint64_t kTimingRequestUsec = 250000;
    uint64_t lastTimingRequest_ = 0;  // audio thread only
    static void onState(pa_stream* s, void* userdata);

    std::shared_ptr<PulseLoop> loop_;
    pa_stream* stream_ = nullptr;
    StreamFaults faults_;
    std::atomic<double> latency_{0.0};
    std::atomic<uint64_t> underflows_{0};
    bool closing_ = true;  // loop thread only (or with the loop locked)
    std::atomic<bool> running_{false};  // between start() and stop(): audio flows
    const char* keepWhat_ = "keep playing";

private:
    void cork(bool paused);
};

class PulseCapture final : public PulseStream {
public:
    static constexpr int kMaxBlockFrames = 8192;  // the sink never gets more at once
    PulseCapture(std::shared_ptr<PulseLoop> loop, const DeviceEntry& device, double sampleRate, double blockSeconds,
                 CaptureSink& sink, StreamFaults faults);

private:
    static void onRead(pa_stream* s, size_t nbytes, void* userdata);
    CaptureSink& sink_;
};

class PulseOutput final : public PulseStream {
public:
    PulseOutput(std::shared_ptr<PulseLoop> loop, const DeviceEntry& device, AudioFormat format, AudioSource& render,
                double bufferSeconds, StreamFaults faults);

private:
    static void onWrite(pa_stream* s, size_t nbytes, void* userdata);
    void render(float* interleaved, int frames) noexcept;

    AudioFormat format_;
    AudioSource& source_;
    std::unique_ptr<float[]> scratch_;  // kMaxSliceFrames per channel
};

}  // namespace parlova::pulse
