#pragma once
// The level of the audio the user hears, as measured: the RMS level and the
// peak of the latest tap block, in dBFS. How a meter moves (its rise, fall and
// peak hold) is the meter widget's business, not the engine's.
#include <QObject>

namespace parlova {

class LevelMonitor : public QObject {
    Q_OBJECT
public:
    // What silence measures (and where the monitor rests when nothing plays).
    static constexpr float kFloorDb = -120.0f;

    struct Level {
        float rmsDb = kFloorDb;
        float peakDb = kFloorDb;
    };

    explicit LevelMonitor(QObject* parent = nullptr) : QObject(parent) {}

    // One block's level. Safe on the audio and tap threads.
    static Level measure(const float* samples, int frames) noexcept;

    // The latest level (main thread).
    Level level() const { return level_; }
    void update(Level level) { level_ = level; }
    // Back to silence when the audio that fed it stops.
    void reset() { level_ = {}; }

private:
    Level level_;
};

// Whether a newly read pitch should replace the published one: a move of at
// least 1 Hz, or a change to or from "no pitch" (0).
bool shouldPublishPitch(float published, float detected);

}  // namespace parlova
