#pragma once
// Live capture from one microphone: a mono record stream from the backend whose
// blocks are fanned out, on the audio thread, to a fixed set of listeners
// (recording, the level meter, a clone collector) and then written into the
// MicBridge that the output side reads.
#include "devices/AudioBackend.h"
#include "engine/MicBridge.h"

#include <array>
#include <atomic>
#include <memory>

namespace parlova {

// Receives every captured block on the audio thread, before it enters the
// bridge. It must follow the audio-thread rules: no allocation, no blocking.
using CaptureListener = CaptureSink;

class MicCapture final : public CaptureSink {
public:
    static constexpr double kCushionSeconds = 0.02;
    static constexpr double kBlockSeconds = 0.01;
    static constexpr int kMaxListeners = 4;

    // Opens the microphone at `sampleRate` (the server converts). Waits on the
    // server: job threads only. Throws VoiceEngineError.
    // The server delivers `blockSeconds` at a time.
    MicCapture(AudioBackend& backend, const DeviceEntry& device, double sampleRate, StreamFaults faults,
               double blockSeconds = kBlockSeconds);
    ~MicCapture() override;

    // Any thread; a listener must outlive the capture or be removed first.
    // False when every slot is taken.
    bool addListener(CaptureListener* listener);
    void removeListener(CaptureListener* listener);

    void start() { stream_->start(); }
    void stop() { stream_->stop(); }

    double sampleRate() const { return sampleRate_; }
    MicBridge& bridge() { return *bridge_; }
    std::shared_ptr<MicBridge> sharedBridge() const { return bridge_; }
    double latencySeconds() const { return stream_->latencySeconds(); }

    void capturedAudio(const float* mono, int frames) noexcept override;

private:
    double sampleRate_;
    std::shared_ptr<MicBridge> bridge_;
    // Slots are published with release and read with acquire, so a listener's
    // own setup is visible to the audio thread before its first block.
    std::array<std::atomic<CaptureListener*>, kMaxListeners> listeners_{};
    std::unique_ptr<AudioStream> stream_;  // last: closed first
};

}  // namespace parlova
