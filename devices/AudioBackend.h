#pragma once
// The one seam between Parlova and the machine's sound server. The engine, the
// device list and the virtual-mic installer see the server only through this
// interface; devices/pulse/ implements it over the PulseAudio client API
// (which PipeWire desktops serve too), and tests substitute a fake.
//
// Threads:
// - The request calls (snapshot, setDefaultInput, open*, module calls) may
//   wait on the server. Call them from a BackendJobs thread, from a headless
//   command, or from a test, never from a window's main thread.
// - Stream callbacks run on the backend's audio thread under the audio-thread
//   rules: no allocation, no locks shared with the main thread, no logging.
// - Stream faults (`StreamFaults`) arrive on the audio thread once; whoever
//   receives them hops to its own thread before acting.
// - `BackendEvents` signals are emitted on the application's main thread.
#include "common/ErrorSentences.h"
#include "devices/DeviceTable.h"
#include "dsp/AudioBuffers.h"

#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace parlova {

// Receives captured mono audio on the audio thread.
class CaptureSink {
public:
    virtual ~CaptureSink() = default;
    virtual void capturedAudio(const float* mono, int frames) noexcept = 0;
};

// What a stream reports when it ends against its will, once, on the audio
// thread: the device went away, or the stream broke (with the user's sentence).
struct StreamFaults {
    std::function<void()> deviceLost;
    std::function<void(ErrorCode code, const std::string& message)> failed;
};

// An open record or playback stream. Created paused; start() and stop() only
// ask the server and return at once (a refusal arrives as a fault).
class AudioStream {
public:
    virtual ~AudioStream() = default;
    virtual void start() = 0;
    virtual void stop() = 0;
    // What the server reports the stream holds between the device and us, in
    // seconds (0 until known). Safe from any thread.
    virtual double latencySeconds() const = 0;
    // Times the server found a playback stream empty and played silence.
    virtual uint64_t underflows() const { return 0; }
};

// Which scheduling the backend's audio thread was given.
enum class RealtimeGrant { unknown, rtkit, scheduler, none };
const char* describe(RealtimeGrant grant);

struct ModuleInfo {
    uint32_t index = 0;
    std::string name;
    std::string argument;
};

class BackendEvents;

class AudioBackend {
public:
    static constexpr int kMaxSliceFrames = 4096;

    virtual ~AudioBackend() = default;

    // The process's sound server (PulseAudio or PipeWire). Made on first use;
    // making it does not connect.
    static AudioBackend& system();

    // One snapshot of every device and the defaults; none without a server.
    virtual std::optional<DeviceTable> snapshot() = 0;
    // Makes an input the server's default source (the system microphone).
    virtual bool setDefaultInput(const DeviceEntry& device) = 0;

    // Opens a mono float record stream on `device` at `sampleRate` (the server
    // converts), delivering blocks of about `blockSeconds` to `sink`. Throws
    // VoiceEngineError with the user's sentence.
    virtual std::unique_ptr<AudioStream> openCapture(const DeviceEntry& device, double sampleRate,
                                                     double blockSeconds, CaptureSink& sink, StreamFaults faults) = 0;
    // Opens a float playback stream in `format` on `device` that pulls `render`
    // in non-interleaved slices of at most kMaxSliceFrames; the server keeps
    // about `bufferSeconds` queued. A render status other than ok plays as
    // silence. Throws VoiceEngineError.
    virtual std::unique_ptr<AudioStream> openOutput(const DeviceEntry& device, AudioFormat format, AudioSource& render,
                                                    double bufferSeconds, StreamFaults faults) = 0;
    // The scheduling the audio thread got (asked for when the first stream opens).
    virtual RealtimeGrant realtimeGrant() const = 0;

    // Server modules (the virtual mic is made of two).
    virtual std::optional<uint32_t> loadModule(const std::string& name, const std::string& argument, int* error) = 0;
    virtual bool unloadModule(uint32_t index) = 0;
    virtual std::optional<std::vector<ModuleInfo>> modules() = 0;
    // The server's own name, e.g. "PulseAudio (on PipeWire 1.0)"; empty without one.
    virtual std::string serverName() = 0;

    // Device and server events, on the main thread.
    virtual BackendEvents& events() = 0;
};

// Device and server events, delivered on the main thread; bursts are
// coalesced into one devicesChanged()/defaultsChanged(), removals come at once.
class BackendEvents : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    bool isConnected() const { return connected_; }

signals:
    void devicesChanged();
    void defaultsChanged();
    void sourceRemoved(uint32_t index);
    void sinkRemoved(uint32_t index);
    void serverLost();
    void serverBack();

protected:
    bool connected_ = false;
};

}  // namespace parlova
