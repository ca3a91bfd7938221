#pragma once
// A serial worker thread for requests that wait on the sound server, so the
// main thread never does. A job runs on the worker; its completion is queued
// to the main thread and runs there only if the context object still exists.
// Jobs run one at a time in the order posted, so a start and a later
// tear-down of the same route can never overtake each other.
#include <QObject>
#include <QPointer>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace parlova {

class BackendJobs {
public:
    // The process's queue for the system sound server. Never destroyed: a job
    // stuck on a frozen server must not hold up the process's exit.
    static BackendJobs& shared();

    BackendJobs();  // the worker thread starts with the first job
    ~BackendJobs();  // waits for the running job
    BackendJobs(const BackendJobs&) = delete;
    BackendJobs& operator=(const BackendJobs&) = delete;

    // Runs `work` on the worker thread.
    void post(std::function<void()> work);

    // Runs `work` on the worker and hands its result to `done` on `context`'s
    // thread (queued), unless `context` is gone by then.
    template <class Work, class Done>
    void request(QObject* context, Work work, Done done) {
        QPointer<QObject> guard(context);
        post([guard, work = std::move(work), done = std::move(done)]() mutable {
            auto result = work();
            if (!guard) return;
            QMetaObject::invokeMethod(
                guard.data(),
                [guard, done = std::move(done), result = std::move(result)]() mutable {
                    if (guard) done(std::move(result));
                },
                Qt::QueuedConnection);
        });
    }

    // Waits until every job posted so far has run, at most `timeout`; false
    // when time ran out (the server is not answering). For shutdown and tests.
    bool waitIdle(std::chrono::milliseconds timeout);
    bool isBusy() const;

private:
    void run();

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable idle_;
    std::deque<std::function<void()>> queue_;
    bool running_ = false;  // a job is executing
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace parlova
