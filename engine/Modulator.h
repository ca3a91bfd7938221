#pragma once
// A dedicated thread that ticks every 5 ms on a steady clock and hands the time
// since the clock's start to a callback (the active chains' modulation). While
// the callback says nothing moves with time (no vibrato, no tremolo) it ticks
// only every kIdlePeriod, until poke() says the chains or their voices changed.
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
    static constexpr std::chrono::milliseconds kIdlePeriod{250};
    // Returns whether anything moves with time (tick again after kPeriod).
    using Tick = std::function<bool(double secondsSinceStart)>;

    Modulator(std::chrono::steady_clock::time_point clockStart, Tick tick);
    ~Modulator();
    Modulator(const Modulator&) = delete;
    Modulator& operator=(const Modulator&) = delete;

    long ticks() const { return ticks_.load(); }
    // Any thread: ticks at once (a chain or a voice changed).
    void poke();

private:
    void run();

    std::chrono::steady_clock::time_point clockStart_;
    Tick tick_;
    std::atomic<long> ticks_{0};
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    bool poked_ = false;
    std::thread thread_;
};

}  // namespace parlova
