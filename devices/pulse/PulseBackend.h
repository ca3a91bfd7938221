#pragma once
// The PulseAudio implementation of AudioBackend (PipeWire desktops serve the
// same API through pipewire-pulse): enumeration and control on one
// connection, the audio streams on another.
#include "devices/AudioBackend.h"
#include "devices/pulse/PulseControl.h"

namespace parlova::pulse {

// The device table for one server snapshot (sources first, then sinks).
DeviceTable buildDeviceTable(const ServerSnapshot& snapshot);

class PulseBackend final : public AudioBackend {
public:
    std::optional<DeviceTable> snapshot() override;
    bool setDefaultInput(const DeviceEntry& device) override;
    std::unique_ptr<AudioStream> openCapture(const DeviceEntry& device, double sampleRate, double blockSeconds,
                                             CaptureSink& sink, StreamFaults faults) override;
    std::unique_ptr<AudioStream> openOutput(const DeviceEntry& device, AudioFormat format, AudioSource& render,
                                            double bufferSeconds, StreamFaults faults) override;
    RealtimeGrant realtimeGrant() const override;
    std::optional<uint32_t> loadModule(const std::string& name, const std::string& argument, int* error) override;
    bool unloadModule(uint32_t index) override;
    std::optional<std::vector<ModuleInfo>> modules() override;
    std::string serverName() override;
    BackendEvents& events() override;
};

}  // namespace parlova::pulse
