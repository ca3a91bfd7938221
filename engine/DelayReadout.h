#pragma once
// The delay the window and the command line show for a running live route:
// the route's own sum of its parts (both streams' reported latency, the
// bridge's fill, the voice stage's delay), sampled ten times a second, and
// the median of the last two seconds. The parts swing within every block (a
// stream's buffer fills and drains), so a single reading can be off by a
// block; the median is not.
//
// After a stall (the output ran dry, the bridge underran or trimmed, or this
// process did not get to sample for a while) the older samples describe a
// route that is gone: they are dropped and nothing is shown until the route
// has run steadily for a second again. Better no number than a wrong one.
//
// Main thread.
#include <QObject>
#include <QElapsedTimer>
#include <QTimer>

#include <array>
#include <cstdint>
#include <optional>

namespace parlova {

class LiveGraph;

class DelayReadout : public QObject {
    Q_OBJECT
public:
    static constexpr int kSampleMs = 100;
    static constexpr int kWindow = 20;      // samples: two seconds
    static constexpr int kMinSamples = 10;  // a second of steady running before anything is shown
    static constexpr int kLateMs = 300;     // a sample this late means this process stalled

    explicit DelayReadout(QObject* parent = nullptr);

    // Starts sampling `graph` (null: stops, and forgets).
    void follow(const LiveGraph* graph);
    // The delay to show; none until known.
    std::optional<double> seconds() const;

signals:
    // The delay became known, or unknown again.
    void knownChanged();

private:
    void sample();
    void forget();
    uint64_t faults() const;

    QTimer timer_;
    QElapsedTimer sinceLast_;
    const LiveGraph* graph_ = nullptr;
    std::array<double, kWindow> samples_{};
    int count_ = 0;  // samples held (at most kWindow)
    int next_ = 0;   // where the next one goes
    uint64_t faults_ = 0;
};

}  // namespace parlova
