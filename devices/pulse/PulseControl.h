#pragma once
// The enumeration and control connection to the sound server, shared by the
// whole process. Every query is synchronous and reads the server afresh; the
// connection is made on first use and made again after the server went away.
// Queries may come from any thread except the connection's own loop thread.
#include "devices/AudioBackend.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace parlova::pulse {

class PulseLoop;

using parlova::PortKind;

struct SourceInfo {
    uint32_t index = 0;
    std::string name;         // persistent name, e.g. "alsa_input.usb-..."
    std::string description;  // display name
    int channels = 0;
    uint32_t rate = 0;
    uint32_t monitorOfSink = UINT32_MAX;  // the sink this source monitors, if it is a monitor
    std::string masterDevice;             // "device.master_device": the source a filter reads
    std::string loopbackSink;             // "parlova.loopback.sink": the sink a loopback source plays
    std::string deviceClass;              // "device.class"
    std::string formFactor;               // "device.form_factor"
};

struct SinkInfo {
    uint32_t index = 0;
    std::string name;
    std::string description;
    int channels = 0;
    uint32_t rate = 0;
    uint32_t monitorSource = UINT32_MAX;
    std::string activePort;
    PortKind activePortKind = PortKind::unknown;
    std::string formFactor;
};

struct ServerSnapshot {
    std::vector<SourceInfo> sources;  // in the server's order
    std::vector<SinkInfo> sinks;      // in the server's order
    std::string defaultSource;
    std::string defaultSink;
    std::string serverName;  // "pulseaudio", or "PulseAudio (on PipeWire ...)"
};

using parlova::ModuleInfo;

// Kinds of objects and events the subscription reports.
enum class Facility { sink, source, server, other };
enum class Change { added, removed, changed };

class PulseControl {
public:
    static PulseControl& shared();

    // Connects when not connected. False when no server can be reached;
    // lastError() then tells why.
    bool connect();
    int lastError() const;

    std::optional<ServerSnapshot> snapshot();
    bool setDefaultSource(const std::string& name);
    bool setDefaultSink(const std::string& name);
    // Loads a module; its index, or none with *error set to the server's code.
    std::optional<uint32_t> loadModule(const std::string& name, const std::string& argument, int* error = nullptr);
    bool unloadModule(uint32_t index);
    std::optional<std::vector<ModuleInfo>> modules();

    // Receives sink, source and server events on the connection's loop thread,
    // and `lost` when the connection to the server breaks. Subscribing also
    // connects; later reconnections subscribe again.
    using EventHandler = std::function<void(Facility, Change, uint32_t index)>;
    void subscribe(EventHandler events, std::function<void()> lost);

    // Drops the connection (the next query connects again).
    void disconnect();

private:
    PulseControl() = default;
    bool connectLocked();
    void subscribeLocked();

    mutable std::recursive_mutex mutex_;
    std::unique_ptr<PulseLoop> loop_;
    int lastError_ = 0;
    EventHandler events_;
    std::function<void()> lost_;
};

}  // namespace parlova::pulse
