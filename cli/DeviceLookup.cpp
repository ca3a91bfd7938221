#include "cli/DeviceLookup.h"

#include "cli/Command.h"

namespace parlova::cli {
namespace {

std::string listing(const QList<AudioDevice>& devices) {
    if (devices.isEmpty()) return "  (none)\n";
    std::string s;
    for (const auto& d : devices) s += "  " + d.name.toStdString() + "  [" + d.uid.toStdString() + "]\n";
    return s;
}

}  // namespace

DeviceTable systemDevices() {
    auto table = AudioBackend::system().snapshot();
    if (!table) throw Failure(kNoServerMessage);
    return *table;
}

AudioDevice lookupDevice(const DeviceTable& table, const std::string& text, Direction direction,
                         const std::string& option) {
    const auto lists = deviceRules::publishedLists(table);
    const QList<AudioDevice>& devices = direction == Direction::input ? lists.inputs : lists.outputs;
    const QString wanted = QString::fromStdString(text);
    std::vector<AudioDevice> matches;
    for (const auto& d : devices)
        if (d.uid == wanted) matches = {d};
    if (matches.empty())
        for (const auto& d : devices)
            if (d.name.compare(wanted, Qt::CaseInsensitive) == 0) matches.push_back(d);
    bool isNumber = false;
    const uint id = wanted.toUInt(&isNumber);
    if (matches.empty() && isNumber)
        for (const auto& d : devices)
            if (d.id == id) matches.push_back(d);
    const char* kind = direction == Direction::input ? "input" : "output";
    if (matches.size() > 1)
        throw UsageError("Several " + std::string(kind) + "s are named \"" + text + "\"; give " + option +
                         " the UID in brackets:\n" + listing(QList<AudioDevice>(matches.begin(), matches.end())));
    if (matches.empty())
        throw UsageError("There's no " + std::string(kind) + " named \"" + text + "\" (" + option +
                         " takes a name or the UID in brackets). The " + kind + "s are:\n" + listing(devices));
    const auto cable = deviceRules::virtualCable(lists.inputs, lists.outputs);
    if (direction == Direction::input && cable && *cable == matches.front())
        throw UsageError("\"" + text + "\" is the virtual mic; Parlova can't listen to its own voice. Choose a real " +
                         "microphone with " + option + ".");
    return matches.front();
}

}  // namespace parlova::cli
