#pragma once
// Live capture from one microphone: a record stream on the chosen input device
// that delivers mono 32-bit float samples (the server mixes the device's
// channels down and resamples when asked for another rate) and writes them
// into a MicBridge on the stream connection's I/O thread.
//
// The stream is connected, corked, by the constructor; start() lets audio flow
// and stop() corks it again. When the device disappears or the stream breaks,
// deviceLost() or failed() is emitted on the thread that owns the object (the
// main thread), so live mode can stop with its sentence.
#include "engine/MicBridge.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <cstdint>
#include <memory>

struct pa_stream;

namespace parlova {

namespace pulse {
class PulseLoop;
}

// Receives every captured block on the capture thread, before it enters the
// bridge (the recording sink, the level meter and the clone path use it). It
// must follow the audio-thread rules: no allocation, no blocking, no logging.
class CaptureListener {
public:
    virtual ~CaptureListener() = default;
    virtual void capturedAudio(const float* mono, int frames) noexcept = 0;
};

class MicCapture : public QObject {
    Q_OBJECT
public:
    static constexpr double kCushionSeconds = 0.02;
    static constexpr int kMaxBlockFrames = 8192;  // the listener never gets more at once

    // Opens the microphone `device` (an AudioDeviceList id) at `sampleRate`, or
    // at the device's own rate when 0. `latencySeconds` is the size of the
    // blocks the server delivers. Throws VoiceEngineError.
    explicit MicCapture(uint32_t device, double sampleRate = 0, double latencySeconds = 0.01, QObject* parent = nullptr);
    ~MicCapture() override;

    double sampleRate() const { return sampleRate_; }
    uint32_t device() const { return device_; }
    MicBridge& bridge() { return *bridge_; }
    // The bridge, for a render path that may outlive this object.
    std::shared_ptr<MicBridge> sharedBridge() const { return bridge_; }

    // Set before start(); null removes it.
    void setListener(CaptureListener* listener) { listener_.store(listener, std::memory_order_release); }

    // Throws VoiceEngineError "Couldn't start the microphone (error N)."
    void start();
    void stop();
    bool isRunning() const { return running_; }

signals:
    void deviceLost();                    // the microphone went away
    void failed(const QString& message);  // the stream broke for another reason

private:
    static void onRead(pa_stream* s, size_t nbytes, void* userdata);
    static void onState(pa_stream* s, void* userdata);
    bool cork(bool paused);
    void close();

    uint32_t device_;
    double sampleRate_ = 0;
    std::shared_ptr<pulse::PulseLoop> loop_;
    pa_stream* stream_ = nullptr;
    std::shared_ptr<MicBridge> bridge_;
    std::atomic<CaptureListener*> listener_{nullptr};
    bool running_ = false;
    bool closing_ = true;  // guarded by the loop lock; true until the stream is ready and again when closing
};

}  // namespace parlova
