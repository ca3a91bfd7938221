// parlova-cli devices [--json]: the inputs, outputs, defaults and the virtual
// cable as the app sees them.
#include "cli/Command.h"
#include "devices/AudioBackend.h"
#include "devices/AudioDeviceList.h"

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

int run(const std::vector<std::string>& args) {
    bool json = false;
    for (const auto& a : args) {
        if (a == "--json") json = true;
        else {
            std::fprintf(stderr, "Unknown option \"%s\". Run \"parlova-cli devices --help\".\n", a.c_str());
            return 2;
        }
    }
    // One snapshot answers everything below.
    const auto table = AudioBackend::system().snapshot();
    if (!table) {
        std::fprintf(stderr, "%s\n", kNoServerMessage.c_str());
        return 1;
    }
    AudioDeviceList list(nullptr);
    list.publish(*table);
    const auto defaultInput = find(list.inputs(), table->defaultInput);
    const auto defaultOutput = find(list.outputs(), table->defaultOutput);
    const auto cable = list.virtualCable();
    if (json) {
        QJsonArray inputs, outputs;
        for (const auto& d : list.inputs()) inputs.append(deviceJson(d));
        for (const auto& d : list.outputs()) {
            QJsonObject o = deviceJson(d).toObject();
            const DeviceEntry* entry = table->find(d.id);
            o["speaker"] = entry && deviceRules::isSpeaker(*entry);
            outputs.append(o);
        }
        QJsonObject root{{"inputs", inputs},
                         {"outputs", outputs},
                         {"defaultInput", deviceJson(defaultInput)},
                         {"defaultOutput", deviceJson(defaultOutput)},
                         {"virtualCable", deviceJson(cable)}};
        std::fputs(QJsonDocument(root).toJson(QJsonDocument::Indented).constData(), stdout);
        return 0;
    }
    auto print = [](const char* title, const QList<AudioDevice>& devices, const std::optional<AudioDevice>& def) {
        std::printf("%s:\n", title);
        if (devices.isEmpty()) std::printf("  (none)\n");
        for (const auto& d : devices)
            std::printf("  %s %s  [%s]\n", def && *def == d ? "*" : " ", d.name.toUtf8().constData(), d.uid.toUtf8().constData());
    };
    print("Inputs", list.inputs(), defaultInput);
    print("Outputs", list.outputs(), defaultOutput);
    std::printf("\n* = system default\nVirtual mic: %s\n",
                cable ? (cable->name + " [" + cable->uid + "]").toUtf8().constData() : "not installed");
    return 0;
}

CommandRegistration registration{{
    "devices",
    "List audio inputs, outputs and the virtual mic",
    "Usage: parlova-cli devices [--json]\n\n"
    "Lists the microphones and outputs Parlova can use (the device UID in brackets\n"
    "is what --input and --output take), the system defaults, and the virtual mic.\n\n"
    "  --json   print the same as a JSON object\n",
    run,
}};

}  // namespace
}  // namespace parlova::cli
