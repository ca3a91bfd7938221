#pragma once
// A reference for dropout figures: a thread scheduled like the audio thread
// that does nothing but sleep 1 ms at a time and notes each wake-up that came
// late. Late wake-ups are freezes of the machine itself (a busy host holding
// the virtual CPUs back, say), which no process can schedule its way out of:
// a freeze longer than the audio buffered in the server is heard as a break
// whatever the client does. Printed next to the dropouts, it tells the two
// causes apart.
#include "devices/AudioBackend.h"
#include "devices/pulse/Realtime.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace parlova::bench {

class StallWatch {
public:
    // Wake-ups later than `thresholdMs` are kept.
    explicit StallWatch(double thresholdMs) : thresholdMs_(thresholdMs) {
        stallsMs_.reserve(4096);
        thread_ = std::thread([this] { watch(); });
    }
    ~StallWatch() { stop(); }

    void stop() {
        running_ = false;
        if (thread_.joinable()) thread_.join();
    }

    RealtimeGrant grant() const { return grant_; }
    // Valid after stop().
    const std::vector<double>& stallsMs() const { return stallsMs_; }
    double longestMs() const {
        return stallsMs_.empty() ? 0 : *std::max_element(stallsMs_.begin(), stallsMs_.end());
    }

private:
    void watch() {
        using Clock = std::chrono::steady_clock;
        grant_ = pulse::makeRealtime(static_cast<pid_t>(syscall(SYS_gettid)));
        while (running_) {
            const auto before = Clock::now();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            const double lateMs =
                std::chrono::duration<double, std::milli>(Clock::now() - before).count() - 1.0;
            if (lateMs > thresholdMs_ && stallsMs_.size() < stallsMs_.capacity()) stallsMs_.push_back(lateMs);
        }
    }

    const double thresholdMs_;
    std::atomic<bool> running_{true};
    RealtimeGrant grant_ = RealtimeGrant::unknown;
    std::vector<double> stallsMs_;
    std::thread thread_;
};

}  // namespace parlova::bench
