#pragma once
// A dedicated thread that ticks every 5 ms on a steady clock and hands the time
// since the clock's start to a callback (the active chains' modulation).
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace parlova {

class Modulator {
public:
    static constexpr std::chrono::milliseconds kPeriod{5};
    using Tick = std::function<void(double secondsSinceStart)>;

    Modulator(std::chrono::steady_clock::time_point clockStart, Tick tick);
    ~Modulator();
    Modulator(const Modulator&) = delete;
    Modulator& operator=(const Modulator&) = delete;

    long ticks() const { return ticks_.load(); }

private:
    void run();

    std::chrono::steady_clock::time_point clockStart_;
    Tick tick_;
    std::atomic<long> ticks_{0};
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace parlova
