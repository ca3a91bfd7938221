// parlova-cli devices: the inputs, outputs, defaults and the virtual mic as
// the app sees them.
#include "cli/Command.h"
#include "cli/DeviceLookup.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace parlova::cli {
namespace {

QJsonValue deviceJson(const std::optional<AudioDevice>& d) {
    if (!d) return QJsonValue::Null;
    return QJsonObject{{"id", static_cast<qint64>(d->id)}, {"uid", d->uid}, {"name", d->name}};
}

std::optional<AudioDevice> find(const QList<AudioDevice>& list, std::optional<uint32_t> id) {
    if (!id) return std::nullopt;
    for (const auto& d : list)
        if (d.id == *id) return d;
    return std::nullopt;
}

int run(const Arguments& args) {
    const DeviceTable table = systemDevices();  // one snapshot answers everything below
    const auto lists = deviceRules::publishedLists(table);
    const auto defaultInput = find(lists.inputs, table.defaultInput);
    const auto defaultOutput = find(lists.outputs, table.defaultOutput);
    const auto cable = deviceRules::virtualCable(lists.inputs, lists.outputs);
    if (args.has("--json")) {
        QJsonArray inputs, outputs;
        for (const auto& d : lists.inputs) {
            QJsonObject o = deviceJson(d).toObject();
            o["virtual"] = cable && *cable == d;
            inputs.append(o);
        }
        for (const auto& d : lists.outputs) {
            QJsonObject o = deviceJson(d).toObject();
            const DeviceEntry* entry = table.find(d.id);
            o["speaker"] = entry && deviceRules::isSpeaker(*entry);
            o["virtual"] = cable && *cable == d;
            outputs.append(o);
        }
        const QJsonObject root{{"inputs", inputs},
                               {"outputs", outputs},
                               {"defaultInput", deviceJson(defaultInput)},
                               {"defaultOutput", deviceJson(defaultOutput)},
                               {"virtualCable", deviceJson(cable)}};
        std::printf("%s\n", QJsonDocument(root).toJson(QJsonDocument::Compact).constData());
        return kExitOk;
    }
    auto print = [](const char* title, const QList<AudioDevice>& devices, const std::optional<AudioDevice>& def) {
        std::printf("%s:\n", title);
        if (devices.isEmpty()) std::printf("  (none)\n");
        for (const auto& d : devices)
            std::printf("  %s %s  [%s]\n", def && *def == d ? "*" : " ", d.name.toUtf8().constData(),
                        d.uid.toUtf8().constData());
    };
    print("Inputs", lists.inputs, defaultInput);
    print("Outputs", lists.outputs, defaultOutput);
    std::printf("\n* = system default\nVirtual mic: %s\n",
                cable ? (cable->name + " [" + cable->uid + "]").toUtf8().constData() : "not installed");
    return kExitOk;
}

CommandRegistration registration({
    "devices",
    "List audio inputs, outputs and the virtual mic",
    {},
    "Lists the microphones and outputs Parlova can use, the system defaults and the\n"
    "virtual mic. --input and --output take a device's name or its UID (in brackets).\n",
    {jsonOption("the devices")},
    "",
    run,
});

}  // namespace
}  // namespace parlova::cli
