#pragma once
// Live output to one device: a playback stream on the chosen output whose
// I/O thread pulls a render source for every block the server asks for, in
// slices of at most 4096 frames, and interleaves the non-interleaved float
// channels into the stream's buffer. Live mode renders its whole chain this
// way, so the output device's clock drives it; a second one serves as the
// monitor in call mode.
//
// The stream is connected, corked, by the constructor and plays silence until
// start(); the render source is only pulled between start() and stop(), and
// must then follow the audio-thread rules. A source status other than ok
// gives silence for that slice. When the device disappears or the stream
// breaks, deviceLost() or failed() is emitted on the owner's (main) thread.
#include "dsp/AudioBuffers.h"

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

class DeviceOutput : public QObject {
    Q_OBJECT
public:
    static constexpr int kMaxSliceFrames = 4096;

    // The format to feed a device in: its own sample rate (48000 Hz when it
    // cannot be read) and 2 channels.
    static AudioFormat formatFor(uint32_t device);

    // Opens the output `device` (an AudioDeviceList id; playing to a loopback
    // microphone plays into its sink). `latencySeconds` is the buffer the
    // server keeps ahead. Throws VoiceEngineError.
    DeviceOutput(uint32_t device, AudioFormat format, AudioSource* render, double latencySeconds = 0.02,
                 QObject* parent = nullptr);
    ~DeviceOutput() override;

    const AudioFormat& format() const { return format_; }
    uint32_t device() const { return device_; }

    // Throws VoiceEngineError "Couldn't start the output (error N)."
    void start();
    void stop();
    bool isRunning() const { return running_.load(std::memory_order_relaxed); }

    // Slices in which the render source reported a failure (played as silence).
    uint64_t renderFailures() const { return renderFailures_.load(std::memory_order_relaxed); }
    // Frames pulled from the render source so far.
    uint64_t framesRendered() const { return framesRendered_.load(std::memory_order_relaxed); }

signals:
    void deviceLost();
    void failed(const QString& message);

private:
    static void onWrite(pa_stream* s, size_t nbytes, void* userdata);
    static void onState(pa_stream* s, void* userdata);
    void render(float* interleaved, int frames) noexcept;
    bool cork(bool paused);
    void close();

    uint32_t device_;
    AudioFormat format_;
    AudioSource* source_;
    std::unique_ptr<float[]> scratch_;  // kMaxSliceFrames per channel
    std::shared_ptr<pulse::PulseLoop> loop_;
    pa_stream* stream_ = nullptr;
    std::atomic<bool> running_{false};
    std::atomic<uint64_t> renderFailures_{0};
    std::atomic<uint64_t> framesRendered_{0};
    bool closing_ = true;  // guarded by the loop lock; true until ready and again when closing
};

}  // namespace parlova
