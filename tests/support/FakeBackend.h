#pragma once
// A sound server in memory: a fixed device table (after a number of refused
// snapshots), streams that do nothing by themselves, and the render source of
// every output opened, so a test can pull them the way a device would.
#include "common/VoiceEngineError.h"
#include "devices/AudioBackend.h"

#include <atomic>
#include <functional>
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

class FakeStream : public AudioStream {
public:
    void start() override {}
    void stop() override {}
    double latencySeconds() const override { return 0.01; }
};

class FakeBackend : public AudioBackend {
public:
    FakeBackend(std::function<DeviceTable()> table, int refusals = 0) : table_(std::move(table)), refusals_(refusals) {}
    std::optional<DeviceTable> snapshot() override {
        ++snapshots;
        if (refusals_-- > 0) return std::nullopt;
        return table_();
    }
    bool setDefaultInput(const DeviceEntry&) override { return true; }
    std::unique_ptr<AudioStream> openCapture(const DeviceEntry&, double, double, CaptureSink&, StreamFaults) override {
        if (!captureError.empty()) throw VoiceEngineError(captureError, captureErrorCode);
        return std::make_unique<FakeStream>();
    }
    std::unique_ptr<AudioStream> openOutput(const DeviceEntry&, AudioFormat, AudioSource& render, double,
                                            StreamFaults) override {
        outputs.push_back(&render);
        return std::make_unique<FakeStream>();
    }
    RealtimeGrant realtimeGrant() const override { return RealtimeGrant::none; }
    std::optional<uint32_t> loadModule(const std::string&, const std::string&, int*) override { return {}; }
    bool unloadModule(uint32_t) override { return false; }
    std::optional<std::vector<ModuleInfo>> modules() override { return {}; }
    std::string serverName() override { return "fake"; }
    BackendEvents& events() override { return events_; }

    std::atomic<int> snapshots{0};
    std::vector<AudioSource*> outputs;  // in the order opened
    std::string captureError;           // when set, every capture fails with it
    ErrorCode captureErrorCode = ErrorCode::failed;

private:
    std::function<DeviceTable()> table_;
    std::atomic<int> refusals_;
    BackendEvents events_;
};

}  // namespace parlova::testaudio
