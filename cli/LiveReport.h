#pragma once
// What live, record and play tell while they run: sentences on standard error,
// or with --json one compact object per event on standard output.
#include "devices/AudioBackend.h"
#include "engine/LiveGraph.h"

#include <QJsonObject>
#include <QString>

#include <string>

namespace parlova::cli {

class LiveReport {
public:
    LiveReport(bool json, bool quiet) : json_(json), quiet_(quiet) {}

    void started(const QString& voice, const LiveRoute& route, RealtimeGrant grant);
    void delay(double seconds);
    void waiting();
    void stopped();
    // An error always shows, --quiet or not.
    void error(const std::string& message);
    // A plain status sentence (no JSON form).
    void status(const QString& sentence);

private:
    void event(const QJsonObject& object);
    bool json_;
    bool quiet_;
};

}  // namespace parlova::cli
