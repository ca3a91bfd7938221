#include "engine/Modulator.h"

namespace parlova {

Modulator::Modulator(std::chrono::steady_clock::time_point clockStart, Tick tick)
    : clockStart_(clockStart), tick_(std::move(tick)), thread_([this] { run(); }) {}

Modulator::~Modulator() {
    {
        std::lock_guard guard(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void Modulator::poke() {
    {
        std::lock_guard guard(mutex_);
        poked_ = true;
    }
    wake_.notify_all();
}

void Modulator::run() {
    auto deadline = std::chrono::steady_clock::now();  // first tick at once
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (wake_.wait_until(lock, deadline, [this] { return stopping_ || poked_; }) && stopping_) break;
        if (poked_) deadline = std::chrono::steady_clock::now();
        poked_ = false;
        lock.unlock();
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - clockStart_;
        const bool moving = tick_(elapsed.count());
        ticks_.fetch_add(1);
        lock.lock();
        deadline += moving ? kPeriod : kIdlePeriod;
        // After a stall, skip missed ticks rather than firing them in a burst.
        const auto now = std::chrono::steady_clock::now();
        if (deadline < now) deadline = now;
    }
}

}  // namespace parlova
