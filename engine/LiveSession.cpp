#include "engine/LiveSession.h"

#include "common/VoiceEngineError.h"

#include <QPointer>
#include <QTimer>

namespace parlova {

struct LiveSession::Attempt {
    std::shared_ptr<LiveGraph> graph;
    DeviceTable table;
    ErrorCode code = ErrorCode::failed;
    QString error;

    void fail(const VoiceEngineError& failure) {
        code = failure.code();
        error = QString::fromStdString(failure.errorDescription());
    }
};

LiveSession::LiveSession(AudioBackend* backend, BackendJobs& jobs, QObject* parent)
    : QObject(parent), backend_(backend), jobs_(jobs), watcher_(backend) {
    // Queued, so that a lost server is known before the watcher's reports are handled.
    connect(&watcher_, &DeviceWatcher::deviceLost, this,
            [this](uint32_t) {
                fault(generation_, serverLost_ ? ErrorCode::serverUnreachable : ErrorCode::deviceGone);
            },
            Qt::QueuedConnection);
    startBound_.setSingleShot(true);
    connect(&startBound_, &QTimer::timeout, this, [this] {
        if (!starting_) return;
        // The job thread may be stuck in a server call: leave it there. The
        // bumped generation drops whatever it brings back.
        tearDown();
        emit startFailed(ErrorCode::serverSilent, QString::fromUtf8(kServerSilentMessage));
    });
    if (backend_) {
        connect(&backend_->events(), &BackendEvents::serverLost, this, [this] { serverLost_ = true; });
        connect(&backend_->events(), &BackendEvents::serverBack, this, [this] { serverLost_ = false; });
    }
}

LiveSession::~LiveSession() { tearDown(); }

void LiveSession::setStarting(bool on) {
    if (!on) startBound_.stop();
    if (starting_ == on) return;
    starting_ = on;
    emit startingChanged();
}

void LiveSession::start(RequestMaker request) {
    if (graph_ || starting_) return;
    request_ = std::move(request);
    setStarting(true);
    startBound_.start(startBoundMs_);
    attempt(1);
}

void LiveSession::attempt(int number) {
    const int generation = ++generation_;
    Request request = request_();
    if (!backend_) {
        auto failed = std::make_shared<Attempt>();
        failed->fail(VoiceEngineError(ErrorCode::serverUnreachable));
        QMetaObject::invokeMethod(this, [this, generation, number, failed] { finished(generation, number, failed); },
                                  Qt::QueuedConnection);
        return;
    }
    QPointer<LiveSession> self(this);
    // Stream faults arrive on the audio thread: hop to the main thread.
    StreamFaults faults;
    faults.deviceLost = [self, generation] {
        QMetaObject::invokeMethod(self, [self, generation] {
            if (self) self->fault(generation, ErrorCode::deviceGone);
        }, Qt::QueuedConnection);
    };
    faults.failed = [self, generation](ErrorCode code, const std::string& message) {
        QMetaObject::invokeMethod(self, [self, generation, code, text = QString::fromStdString(message)] {
            if (self) self->fault(generation, code, text);
        }, Qt::QueuedConnection);
    };
    AudioBackend* backend = backend_;
    jobs_.request(
        this,
        [backend, request = std::move(request), faults] {
            auto result = std::make_shared<Attempt>();
            auto table = backend->snapshot();
            if (!table) {
                result->fail(VoiceEngineError(ErrorCode::serverUnreachable));
                return result;
            }
            try {
                const LiveRoute route = routeLive(*table, request.route);
                auto graph = std::make_shared<LiveGraph>(*backend, route, request.stage, request.recordTap,
                                                         request.meterTap, faults, request.buffering);
                graph->setInitialAudible(request.audible);
                graph->start();
                result->graph = std::move(graph);
                result->table = std::move(*table);
            } catch (const VoiceEngineError& error) {
                result->fail(error);
            }
            return result;
        },
        [this, generation, number](std::shared_ptr<Attempt> result) { finished(generation, number, result); });
}

void LiveSession::finished(int generation, int number, const std::shared_ptr<Attempt>& result) {
    if (generation != generation_) {
        // Torn down or restarted meanwhile: this route is not wanted any more.
        dispose(std::move(result->graph));
        return;
    }
    if (result->graph) {
        graph_ = std::move(result->graph);
        startTable_ = std::move(result->table);
        std::vector<const DeviceEntry*> inUse{&graph_->route().mic, &graph_->route().output};
        if (graph_->route().monitor) inUse.push_back(&*graph_->route().monitor);
        watcher_.watch(inUse);
        serverLost_ = false;
        setStarting(false);
        emit started();
        return;
    }
    if (number < kAttempts) {
        QTimer::singleShot(kRetryDelayMs, this, [this, generation, number] {
            // A newer start or a tear-down since then cancels this retry.
            if (generation == generation_ && starting_) attempt(number + 1);
        });
        return;
    }
    setStarting(false);
    emit startFailed(result->code, result->error);
}

void LiveSession::fault(int generation, ErrorCode code, const QString& message) {
    if (generation != generation_ || !graph_) return;  // a report about a route already gone
    tearDown();
    emit stopped(code, message.isEmpty() ? QString::fromUtf8(sentence(code)) : message);
}

void LiveSession::tearDown() {
    ++generation_;  // cancels a pending retry and drops a start still in flight
    setStarting(false);
    watcher_.unwatch();
    if (graph_) dispose(std::move(graph_));
    graph_.reset();
}

void LiveSession::dispose(std::shared_ptr<LiveGraph> graph) {
    if (!graph) return;
    // Closing streams waits on the server: the job thread does it, and the
    // graph is destroyed there once nothing pulls it any more.
    jobs_.post([graph = std::move(graph)]() mutable {
        graph->stop();
        graph.reset();
    });
}

}  // namespace parlova
