#include "devices/pulse/PulseBackend.h"

#include <unordered_map>
#include <unordered_set>

namespace parlova::pulse {

namespace {

std::optional<std::string> nonEmpty(const std::string& s) {
    if (s.empty()) return std::nullopt;
    return s;
}

void takeSinkOutput(DeviceEntry& e, const SinkInfo& sink) {
    e.outputChannels = sink.channels;
    e.sinkName = sink.name;
    e.sinkIndex = sink.index;
    e.outputRate = sink.rate;
    e.outputPort = sink.activePortKind;
    e.outputPortName = sink.activePort;
    e.outputFormFactor = sink.formFactor;
}

}  // namespace

DeviceTable buildDeviceTable(const ServerSnapshot& snap) {
    DeviceTable table;
    table.serverName = snap.serverName;
    std::unordered_map<std::string, size_t> sinkByName;
    std::unordered_map<uint32_t, size_t> sinkByIndex;
    for (size_t i = 0; i < snap.sinks.size(); ++i) {
        sinkByName.emplace(snap.sinks[i].name, i);
        sinkByIndex.emplace(snap.sinks[i].index, i);
    }
    std::unordered_map<std::string, uint32_t> monitoredSinkBySourceName;
    for (const auto& src : snap.sources)
        if (src.monitorOfSink != UINT32_MAX) monitoredSinkBySourceName.emplace(src.name, src.monitorOfSink);

    std::unordered_set<uint32_t> foldedSinks;
    for (const auto& src : snap.sources) {
        DeviceEntry e;
        e.id = src.index;
        e.uid = nonEmpty(src.name);
        e.name = nonEmpty(src.description);
        e.inputChannels = src.channels;
        e.sourceName = src.name;
        e.sourceIndex = src.index;
        e.inputRate = src.rate;
        e.isMonitor = src.monitorOfSink != UINT32_MAX;
        e.hidden = e.isMonitor;
        if (!e.isMonitor) {
            // A loopback names its sink directly, or reads the monitor of one.
            const SinkInfo* sink = nullptr;
            if (!src.loopbackSink.empty()) {
                if (auto it = sinkByName.find(src.loopbackSink); it != sinkByName.end()) sink = &snap.sinks[it->second];
            } else if (!src.masterDevice.empty()) {
                if (auto m = monitoredSinkBySourceName.find(src.masterDevice); m != monitoredSinkBySourceName.end())
                    if (auto it = sinkByIndex.find(m->second); it != sinkByIndex.end()) sink = &snap.sinks[it->second];
            }
            if (sink) {
                takeSinkOutput(e, *sink);
                foldedSinks.insert(sink->index);
            }
        }
        table.entries.push_back(std::move(e));
    }
    for (const auto& sink : snap.sinks) {
        DeviceEntry e;
        e.id = sink.index | kSinkIdBit;
        e.uid = nonEmpty(sink.name);
        e.name = nonEmpty(sink.description);
        takeSinkOutput(e, sink);
        e.hidden = foldedSinks.count(sink.index) > 0;
        table.entries.push_back(std::move(e));
    }
    // Defaults: the first entry that records from / plays into the named object,
    // so a loopback's sink chosen as default output reads as the loopback.
    for (const auto& e : table.entries) {
        if (!table.defaultInput && !snap.defaultSource.empty() && e.sourceName == snap.defaultSource)
            table.defaultInput = e.id;
        if (!table.defaultOutput && !snap.defaultSink.empty() && e.sinkName == snap.defaultSink)
            table.defaultOutput = e.id;
    }
    return table;
}

}  // namespace parlova::pulse
