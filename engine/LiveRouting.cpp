#include "engine/LiveRouting.h"

#include "common/VoiceEngineError.h"
#include "devices/AudioDeviceList.h"

#include <algorithm>

namespace parlova {
namespace {

bool contains(const std::vector<uint32_t>& ids, uint32_t id) { return std::find(ids.begin(), ids.end(), id) != ids.end(); }

std::optional<QString> optionalUid(const QString& uid) {
    return uid.isEmpty() ? std::nullopt : std::optional<QString>(uid);
}

}  // namespace

const DeviceEntry& playbackOutput(const DeviceTable& table, const QString& outputUID) {
    auto output = deviceRules::deviceID(table, optionalUid(outputUID));
    if (!output) output = table.defaultOutput;
    const DeviceEntry* entry = output ? table.find(*output) : nullptr;
    if (!entry) throw VoiceEngineError(kNoDevicesMessage);
    return *entry;
}

std::optional<uint32_t> realSystemMic(const DeviceTable& table, const QString& savedMicUID) {
    const auto physical = deviceRules::physicalInputIDs(table);
    if (auto current = table.defaultInput; current && contains(physical, *current)) return current;
    if (auto id = deviceRules::deviceID(table, optionalUid(savedMicUID)); id && contains(physical, *id)) return id;
    if (!physical.empty()) return physical.front();
    return std::nullopt;
}

std::optional<uint32_t> physicalMic(const DeviceTable& table, const QString& inputUID, const QString& savedMicUID) {
    if (auto chosen = deviceRules::deviceID(table, optionalUid(inputUID));
        chosen && contains(deviceRules::physicalInputIDs(table), *chosen))
        return chosen;
    return realSystemMic(table, savedMicUID);
}

std::optional<uint32_t> micToRestore(const DeviceTable& table, const QString& savedMicUID) {
    if (auto saved = deviceRules::deviceID(table, optionalUid(savedMicUID))) return saved;
    const auto physical = deviceRules::physicalInputIDs(table);
    if (!physical.empty()) return physical.front();
    return std::nullopt;
}

LiveRoute routeLive(const DeviceTable& table, const RouteRequest& request) {
    std::optional<uint32_t> output, monitor;
    if (request.isCall) {
        const auto cable = deviceRules::virtualCableID(table);
        if (!cable) throw VoiceEngineError(ErrorCode::callNeedsVirtualMic);
        output = cable;
        if (request.hearMyself) {
            auto chosen = deviceRules::deviceID(table, optionalUid(request.outputUID));
            if (!chosen) chosen = table.defaultOutput;
            // Never on the cable itself, and never on speakers: they would echo into the call.
            const DeviceEntry* entry = chosen ? table.find(*chosen) : nullptr;
            if (entry && *chosen != *cable && !deviceRules::isSpeaker(*entry)) monitor = chosen;
        }
    } else {
        output = deviceRules::deviceID(table, optionalUid(request.outputUID));
        if (!output) output = table.defaultOutput;
    }
    const auto mic = physicalMic(table, request.inputUID, request.savedMicUID);
    const DeviceEntry* micEntry = mic ? table.find(*mic) : nullptr;
    const DeviceEntry* outEntry = output ? table.find(*output) : nullptr;
    if (!micEntry || !outEntry) throw VoiceEngineError(ErrorCode::noDevices);
    LiveRoute route;
    route.mic = *micEntry;
    route.output = *outEntry;
    if (monitor) route.monitor = *table.find(*monitor);
    route.isCall = request.isCall;
    return route;
}

}  // namespace parlova
