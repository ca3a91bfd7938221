#include "engine/DelayReadout.h"

#include "engine/LiveGraph.h"

#include <algorithm>

namespace parlova {

DelayReadout::DelayReadout(QObject* parent) : QObject(parent) {
    timer_.setInterval(kSampleMs);
    connect(&timer_, &QTimer::timeout, this, &DelayReadout::sample);
}

void DelayReadout::follow(const LiveGraph* graph) {
    graph_ = graph;
    forget();
    if (graph_) {
        faults_ = faults();
        sinceLast_.start();
        timer_.start();
    } else {
        timer_.stop();
    }
}

uint64_t DelayReadout::faults() const {
    const auto bridge = graph_->micBridge();
    return graph_->outputUnderflows() + bridge->underruns() + bridge->trims();
}

void DelayReadout::forget() {
    const bool wasKnown = count_ >= kMinSamples;
    count_ = next_ = 0;
    if (wasKnown) emit knownChanged();
}

void DelayReadout::sample() {
    if (!graph_) return;
    const bool late = sinceLast_.restart() > kLateMs;
    const uint64_t faults = this->faults();
    if (late || faults != faults_) {
        faults_ = faults;
        forget();
        return;
    }
    samples_[static_cast<size_t>(next_)] = graph_->delaySeconds();
    next_ = (next_ + 1) % kWindow;
    count_ = std::min(count_ + 1, kWindow);
    if (count_ == kMinSamples) emit knownChanged();
}

std::optional<double> DelayReadout::seconds() const {
    if (!graph_ || count_ < kMinSamples) return std::nullopt;
    std::array<double, kWindow> sorted = samples_;
    std::nth_element(sorted.begin(), sorted.begin() + count_ / 2, sorted.begin() + count_);
    return sorted[static_cast<size_t>(count_ / 2)];
}

}  // namespace parlova
