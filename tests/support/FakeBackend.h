#pragma once
// Sound servers in memory for the tests: a fixed device table (after a
// number of refused snapshots) and streams moved by a clock the test runs.
#include "common/VoiceEngineError.h"
#include "devices/AudioBackend.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace parlova::testaudio {

inline DeviceEntry fakeInput(uint32_t id, const char* uid, const char* name) {
    DeviceEntry e;
    e.id = id;
    e.uid = uid;
    e.name = name;
    e.inputChannels = 1;
    e.sourceName = uid;
    return e;
}

inline DeviceEntry fakeOutput(uint32_t id, const char* uid, const char* name, PortKind port = PortKind::headphones) {
    DeviceEntry e;
    e.id = id | kSinkIdBit;
    e.uid = uid;
    e.name = name;
    e.outputChannels = 2;
    e.sinkName = uid;
    e.outputPort = port;
    return e;
}

// A laptop with its microphone and speakers, a USB headset and, unless
// `cableName` is empty, the virtual mic under that name.
inline DeviceTable fakeMachine(const char* cableName = "Parlova Mic") {
    DeviceTable t;
    t.entries = {fakeInput(1, "laptop_mic", "Laptop Mic"), fakeInput(2, "headset_mic", "Headset Mic"),
                 fakeOutput(3, "speakers", "Speakers", PortKind::speaker), fakeOutput(4, "headset", "Headset")};
    if (*cableName) {
        DeviceEntry cable = fakeInput(5, "parlova_mic", cableName);
        cable.outputChannels = 1;
        cable.sinkName = "parlova_mic_sink";
        t.entries.push_back(cable);
    }
    t.defaultInput = 1;
    t.defaultOutput = 3 | kSinkIdBit;
    return t;
}

class FakeBackend;

// A stream of the moving server: it runs between start() and stop(), and
// leaves the server's clock when destroyed (on whatever thread closes it).
class ClockedStream : public AudioStream {
public:
    ClockedStream(FakeBackend& server, CaptureSink* sink, AudioSource* render, int channels);
    ~ClockedStream() override;
    void start() override { running.store(true); }
    void stop() override { running.store(false); }
    double latencySeconds() const override { return 0.01; }

    std::atomic<bool> running{false};
    CaptureSink* sink;
    AudioSource* render;
    int channels;
    std::vector<float> heard;  // an output's first channel, as pulled

private:
    FakeBackend& server_;
};

// A sound server in memory that moves audio: a device table, a microphone
// that says `microphone` (then silence), and a clock the test advances, which
// hands every running capture its next block and pulls every running output
// the same amount, as a device would. What each output played is kept.
// Streams are opened and closed on the engine's job thread; the clock runs on
// the test's thread.
class FakeBackend : public AudioBackend {
public:
    FakeBackend(std::function<DeviceTable()> table, int refusals = 0) : table_(std::move(table)), refusals_(refusals) {}
    std::optional<DeviceTable> snapshot() override {
        ++snapshots;
        if (refusals_-- > 0) return std::nullopt;
        DeviceTable table = table_();
        std::lock_guard lock(mutex_);
        if (defaultInput_) table.defaultInput = *defaultInput_;
        return table;
    }
    bool setDefaultInput(const DeviceEntry& device) override {
        std::lock_guard lock(mutex_);
        defaultInput_ = device.id;
        return true;
    }
    std::unique_ptr<AudioStream> openCapture(const DeviceEntry&, double, double, CaptureSink& sink, StreamFaults) override {
        if (!captureError.empty()) throw VoiceEngineError(captureError, captureErrorCode);
        return std::make_unique<ClockedStream>(*this, &sink, nullptr, 1);
    }
    std::unique_ptr<AudioStream> openOutput(const DeviceEntry&, AudioFormat format, AudioSource& render, double,
                                            StreamFaults) override {
        outputs.push_back(&render);
        return std::make_unique<ClockedStream>(*this, nullptr, &render, format.channels);
    }
    RealtimeGrant realtimeGrant() const override { return RealtimeGrant::none; }
    std::optional<uint32_t> loadModule(const std::string&, const std::string&, int*) override { return {}; }
    bool unloadModule(uint32_t) override { return false; }
    std::optional<std::vector<ModuleInfo>> modules() override { return {}; }
    std::string serverName() override { return "fake"; }
    BackendEvents& events() override { return events_; }

    // Runs the clock for `seconds` in blocks of `block` frames at 48 kHz.
    // Returns what the outputs running now played meanwhile, in the order opened.
    std::vector<std::vector<float>> advance(double seconds, int block = 480) {
        std::lock_guard lock(mutex_);
        std::vector<float> captured(static_cast<size_t>(block)), left(static_cast<size_t>(block)),
            right(static_cast<size_t>(block));
        std::vector<std::vector<float>> played(streams_.size());
        for (long done = 0; done < static_cast<long>(seconds * 48000); done += block) {
            for (size_t i = 0; i < captured.size(); ++i)
                captured[i] = micAt_ < microphone.size() ? microphone[micAt_++] : 0.0f;
            for (ClockedStream* stream : streams_)
                if (stream->running.load() && stream->sink) stream->sink->capturedAudio(captured.data(), block);
            for (size_t s = 0; s < streams_.size(); ++s) {
                ClockedStream* stream = streams_[s];
                if (!stream->running.load() || !stream->render) continue;
                BufferList list;
                list.count = std::min(stream->channels, 2);
                list.data[0] = left.data();
                list.data[1] = right.data();
                if (stream->render->pull(list, block) != status::ok) std::fill(left.begin(), left.end(), 0.0f);
                played[s].insert(played[s].end(), left.begin(), left.end());
                stream->heard.insert(stream->heard.end(), left.begin(), left.end());
            }
        }
        std::vector<std::vector<float>> result;
        for (auto& p : played)
            if (!p.empty()) result.push_back(std::move(p));
        return result;
    }
    // The number of streams that run now.
    int runningStreams() {
        std::lock_guard lock(mutex_);
        return static_cast<int>(std::count_if(streams_.begin(), streams_.end(),
                                              [](ClockedStream* s) { return s->running.load(); }));
    }
    std::optional<uint32_t> defaultInput() {
        std::lock_guard lock(mutex_);
        return defaultInput_;
    }

    std::atomic<int> snapshots{0};
    std::vector<AudioSource*> outputs;  // in the order opened
    std::string captureError;           // when set, every capture fails with it
    ErrorCode captureErrorCode = ErrorCode::failed;
    std::vector<float> microphone;      // 48 kHz mono, said once from the first advance()

private:
    friend class ClockedStream;
    std::function<DeviceTable()> table_;
    std::atomic<int> refusals_;
    BackendEvents events_;
    std::mutex mutex_;
    std::vector<ClockedStream*> streams_;
    std::optional<uint32_t> defaultInput_;
    size_t micAt_ = 0;
};

inline ClockedStream::ClockedStream(FakeBackend& server, CaptureSink* sink, AudioSource* render, int channels)
    : sink(sink), render(render), channels(channels), server_(server) {
    std::lock_guard lock(server_.mutex_);
    server_.streams_.push_back(this);
}

inline ClockedStream::~ClockedStream() {
    std::lock_guard lock(server_.mutex_);
    std::erase(server_.streams_, this);
}

}  // namespace parlova::testaudio
