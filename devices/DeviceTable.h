#pragma once
// The machine's audio devices as Parlova sees them, built from one snapshot of
// the sound server, in the server's order: its sources first, then its sinks.
//
// Sources are inputs and sinks are outputs. A device's id is the object's
// index, with bit 31 set for sinks so the two kinds never collide; its UID is
// the object's persistent name and its display name the description.
//
// Two kinds of objects are kept but hidden from the published lists, the way
// a system's own helper devices are: monitor sources (a copy of what a sink
// plays), and the sink behind a loopback. A loopback is a source that reads
// the monitor of a sink (a null sink plus a remap source, which is how the
// virtual microphone is made): it is listed once, under the source's id, UID
// and name, with the source's input channels and the sink's output channels,
// so playing to it plays into the sink and recording from it records what was
// played.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace parlova {

// What the active output port says about how the device is heard.
enum class PortKind { unknown, speaker, headphones, other };

constexpr uint32_t kSinkIdBit = 0x80000000u;

struct DeviceEntry {
    uint32_t id = 0;
    std::optional<std::string> uid;   // none when the object has no name
    std::optional<std::string> name;  // none when it has no description
    int inputChannels = 0;
    int outputChannels = 0;
    bool hidden = false;     // a monitor, or the sink side of a loopback
    bool isMonitor = false;
    std::string sourceName;  // what a record stream connects to; empty without input
    std::string sinkName;    // what a playback stream connects to; empty without output
    uint32_t sourceIndex = UINT32_MAX;
    uint32_t sinkIndex = UINT32_MAX;
    uint32_t inputRate = 0;
    uint32_t outputRate = 0;
    PortKind outputPort = PortKind::unknown;
    std::string outputPortName;
    std::string outputFormFactor;
};

struct DeviceTable {
    std::vector<DeviceEntry> entries;
    std::optional<uint32_t> defaultInput;   // the entry of the server's default source
    std::optional<uint32_t> defaultOutput;  // the entry of the server's default sink
    std::string serverName;

    const DeviceEntry* find(uint32_t id) const;
};


}  // namespace parlova
