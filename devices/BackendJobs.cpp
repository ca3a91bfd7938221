#include "devices/BackendJobs.h"

namespace parlova {

BackendJobs& BackendJobs::shared() {
    static BackendJobs* jobs = new BackendJobs;
    return *jobs;
}

BackendJobs::BackendJobs() = default;

BackendJobs::~BackendJobs() {
    {
        std::lock_guard guard(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void BackendJobs::post(std::function<void()> work) {
    {
        std::lock_guard guard(mutex_);
        queue_.push_back(std::move(work));
        // The worker starts with the first job: a queue that is never used
        // (an engine that only renders files) costs no thread.
        if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
    }
    wake_.notify_one();
}

bool BackendJobs::waitIdle(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return idle_.wait_for(lock, timeout, [this] { return queue_.empty() && !running_; });
}

bool BackendJobs::isBusy() const {
    std::lock_guard guard(mutex_);
    return running_ || !queue_.empty();
}

void BackendJobs::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (queue_.empty()) return;  // stopping, nothing left
        auto job = std::move(queue_.front());
        queue_.pop_front();
        running_ = true;
        lock.unlock();
        job();
        job = nullptr;  // captured state is released off the lock too
        lock.lock();
        running_ = false;
        if (queue_.empty()) idle_.notify_all();
    }
}

}  // namespace parlova
