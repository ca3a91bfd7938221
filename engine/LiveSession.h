#pragma once
// The live route's life on the main thread: starting it (up to three
// attempts, 0.4 s apart), watching the devices it uses, and tearing it down.
// Everything that waits on the sound server (the device snapshot, opening and
// closing streams) runs as a job on the backend's job thread; results come
// back as queued calls, so the main thread never waits and a frozen server
// only delays the outcome.
#include "devices/AudioDeviceList.h"
#include "devices/BackendJobs.h"
#include "engine/LiveRouting.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>

namespace parlova {

class LiveSession : public QObject {
    Q_OBJECT
public:
    static constexpr int kAttempts = 3;
    static constexpr int kRetryDelayMs = 400;
    // How long a start may wait for a server that does not answer at all.
    static constexpr int kDefaultStartBoundMs = 10000;

    // What one start attempt needs, taken afresh for every attempt.
    struct Request {
        RouteRequest route;
        VoiceStageFactory stage;
        LiveGraph::BlockHandler recordTap;
        LiveGraph::BlockHandler meterTap;
        bool audible = true;
        RouteBuffering buffering = RouteBuffering::normal();
    };
    using RequestMaker = std::function<Request()>;

    // `backend` may be null: every start then fails with the server sentence.
    LiveSession(AudioBackend* backend, BackendJobs& jobs, QObject* parent = nullptr);
    ~LiveSession() override;

    // Starts the route unless it runs or is starting; emits started() or,
    // after the last attempt, startFailed().
    void start(RequestMaker request);
    // Cancels a start in progress and closes a running route.
    void tearDown();
    // A start that has not finished after this long gives up with
    // kServerSilentMessage; what the server answers later is thrown away.
    void setStartBound(int ms) { startBoundMs_ = ms; }

    bool isRunning() const { return graph_ != nullptr; }
    bool isStarting() const { return starting_; }
    LiveGraph* graph() const { return graph_.get(); }
    // The device snapshot the running route was started from.
    const DeviceTable& startTable() const { return startTable_; }
    void setAudible(bool audible) {
        if (graph_) graph_->setAudible(audible);
    }

signals:
    void started();
    void startFailed(parlova::ErrorCode code, const QString& message);
    // A running route stopped by itself (device gone, stream broke, server lost).
    void stopped(parlova::ErrorCode code, const QString& message);
    void startingChanged();

private:
    struct Attempt;
    void attempt(int number);
    void finished(int generation, int number, const std::shared_ptr<Attempt>& result);
    // A running route broke; the code's own sentence unless `message` says more.
    void fault(int generation, ErrorCode code, const QString& message = {});
    void setStarting(bool on);
    void dispose(std::shared_ptr<LiveGraph> graph);

    AudioBackend* backend_;
    BackendJobs& jobs_;
    RequestMaker request_;
    std::shared_ptr<LiveGraph> graph_;
    DeviceTable startTable_;
    DeviceWatcher watcher_;
    int generation_ = 0;  // bumped by every start and tear-down: stale results are dropped
    int startBoundMs_ = kDefaultStartBoundMs;
    QTimer startBound_;
    bool starting_ = false;
    bool serverLost_ = false;
};

}  // namespace parlova
