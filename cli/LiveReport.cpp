#include "cli/LiveReport.h"

#include <QJsonDocument>

#include <cstdio>

namespace parlova::cli {
namespace {

std::string nameOf(const DeviceEntry& device) { return device.name.value_or("unnamed device"); }

QJsonValue deviceJson(const DeviceEntry* device) {
    if (!device) return QJsonValue::Null;
    return QJsonObject{{"uid", QString::fromStdString(device->uid.value_or(""))},
                       {"name", QString::fromStdString(nameOf(*device))}};
}

// Short, stable words for scripts (describe() is the sentence for people).
const char* grantKey(RealtimeGrant grant) {
    switch (grant) {
    case RealtimeGrant::rtkit: return "rtkit";
    case RealtimeGrant::scheduler: return "scheduler";
    case RealtimeGrant::none: return "none";
    case RealtimeGrant::unknown: break;
    }
    return "unknown";
}

}  // namespace

void LiveReport::event(const QJsonObject& object) {
    std::printf("%s\n", QJsonDocument(object).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);  // a script reads events as they happen
}

void LiveReport::started(const QString& voice, const LiveRoute& r, RealtimeGrant grant) {
    if (json_) {
        event({{"event", "started"},
               {"voice", voice},
               {"input", deviceJson(&r.mic)},
               {"output", deviceJson(&r.output)},
               {"monitor", deviceJson(r.monitor ? &*r.monitor : nullptr)},
               {"call", r.isCall},
               {"realtime", grantKey(grant)}});
        return;
    }
    if (quiet_) return;
    std::fprintf(stderr, "Talking live as %s: \xE2\x80\x9C%s\xE2\x80\x9D \xE2\x86\x92 \xE2\x80\x9C%s\xE2\x80\x9D",
                 voice.toUtf8().constData(), nameOf(r.mic).c_str(), nameOf(r.output).c_str());
    if (r.monitor) std::fprintf(stderr, ", hearing myself on \xE2\x80\x9C%s\xE2\x80\x9D", nameOf(*r.monitor).c_str());
    std::fprintf(stderr, ".\n");
    if (r.isCall) std::fprintf(stderr, "Call apps using the system microphone now hear this voice.\n");
    std::fprintf(stderr, "Audio thread: %s.\nPress Ctrl-C to stop.\n", describe(grant));
}

void LiveReport::delay(double seconds) {
    if (json_) event({{"event", "delay"}, {"seconds", seconds}});
    else if (!quiet_) std::fprintf(stderr, "Delay from the microphone to the output: about %.0f ms.\n", seconds * 1000.0);
}

void LiveReport::waiting() {
    if (json_) event({{"event", "waiting"}});
    else if (!quiet_) std::fprintf(stderr, "Waiting for the sound server to answer\xE2\x80\xA6 (Ctrl-C gives up)\n");
}

void LiveReport::stopped() {
    if (json_) event({{"event", "stopped"}});
    else if (!quiet_) std::fprintf(stderr, "Live stopped.\n");
}

void LiveReport::error(const std::string& message) {
    if (json_) event({{"event", "error"}, {"message", QString::fromStdString(message)}});
    std::fprintf(stderr, "%s\n", message.c_str());
}

void LiveReport::status(const QString& sentence) {
    if (!quiet_) std::fprintf(stderr, "%s\n", sentence.toUtf8().constData());
}

}  // namespace parlova::cli
