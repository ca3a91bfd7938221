#pragma once
// Where live audio goes, decided over one snapshot of the devices: which
// microphone live mode captures, which output it plays to, whether a monitor
// joins in call mode, and which device is the real system microphone.
// Pure functions of their arguments, so every rule can be checked on a table.
#include "devices/DeviceTable.h"
#include "engine/LiveGraph.h"

#include <QString>

#include <optional>

namespace parlova {

struct RouteRequest {
    bool isCall = false;      // call mode while live
    bool hearMyself = false;  // add a monitor in call mode
    QString inputUID;         // the chosen microphone; empty = the system one
    QString outputUID;        // the chosen output; empty = the system one
    QString savedMicUID;      // the real microphone remembered during call mode
};

// The devices of a live start; throws VoiceEngineError with the user's sentence.
LiveRoute routeLive(const DeviceTable& table, const RouteRequest& request);

// The output a clip or a board sound plays on: the chosen one (empty: the
// system's), else the system's. Throws VoiceEngineError with the user's sentence.
const DeviceEntry& playbackOutput(const DeviceTable& table, const QString& outputUID);

// The system default input when it is a real microphone, else the saved one,
// else the first real microphone. Never the virtual cable.
std::optional<uint32_t> realSystemMic(const DeviceTable& table, const QString& savedMicUID);
// The chosen input when it is a real microphone, else the real system mic.
std::optional<uint32_t> physicalMic(const DeviceTable& table, const QString& inputUID, const QString& savedMicUID);
// The microphone to give back after call mode: the saved one, else the first real one.
std::optional<uint32_t> micToRestore(const DeviceTable& table, const QString& savedMicUID);

}  // namespace parlova
