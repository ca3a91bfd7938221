#include "devices/pulse/PulseBackend.h"

#include "common/VoiceEngineError.h"
#include "devices/pulse/PulseEvents.h"
#include "devices/pulse/PulseStreams.h"
#include "devices/pulse/StreamLoop.h"

namespace parlova {

AudioBackend& AudioBackend::system() {
    // Never destroyed: its connections' threads may still run at exit.
    static auto* backend = new pulse::PulseBackend;
    return *backend;
}

namespace pulse {

std::optional<DeviceTable> PulseBackend::snapshot() {
    auto snap = PulseControl::shared().snapshot();
    if (!snap) return std::nullopt;
    return buildDeviceTable(*snap);
}

bool PulseBackend::setDefaultInput(const DeviceEntry& device) {
    if (device.sourceName.empty()) return false;
    return PulseControl::shared().setDefaultSource(device.sourceName);
}

namespace {
std::shared_ptr<PulseLoop> streamLoop() {
    int error = 0;
    auto loop = sharedStreamLoop(&error);
    if (!loop) throw VoiceEngineError(ErrorCode::serverUnreachable);
    return loop;
}
}  // namespace

std::unique_ptr<AudioStream> PulseBackend::openCapture(const DeviceEntry& device, double sampleRate,
                                                       double blockSeconds, CaptureSink& sink, StreamFaults faults) {
    return std::make_unique<PulseCapture>(streamLoop(), device, sampleRate, blockSeconds, sink, std::move(faults));
}

std::unique_ptr<AudioStream> PulseBackend::openOutput(const DeviceEntry& device, AudioFormat format,
                                                      AudioSource& render, double bufferSeconds, StreamFaults faults) {
    return std::make_unique<PulseOutput>(streamLoop(), device, format, render, bufferSeconds, std::move(faults));
}

RealtimeGrant PulseBackend::realtimeGrant() const { return streamLoopGrant(); }

std::optional<uint32_t> PulseBackend::loadModule(const std::string& name, const std::string& argument, int* error) {
    return PulseControl::shared().loadModule(name, argument, error);
}

bool PulseBackend::unloadModule(uint32_t index) { return PulseControl::shared().unloadModule(index); }

std::optional<std::vector<ModuleInfo>> PulseBackend::modules() { return PulseControl::shared().modules(); }

std::string PulseBackend::serverName() {
    auto snap = PulseControl::shared().snapshot();
    return snap ? snap->serverName : std::string();
}

BackendEvents& PulseBackend::events() { return PulseEvents::instance(); }

}  // namespace pulse

const char* describe(RealtimeGrant grant) {
    switch (grant) {
    case RealtimeGrant::rtkit: return "real-time priority (rtkit)";
    case RealtimeGrant::scheduler: return "real-time priority (sched_setscheduler)";
    case RealtimeGrant::none: return "normal priority (real-time scheduling not granted)";
    case RealtimeGrant::unknown: break;
    }
    return "not started";
}

}  // namespace parlova
