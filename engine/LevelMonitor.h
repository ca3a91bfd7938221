#pragma once
// Smooths buffer levels from the audio taps and publishes them at a bounded
// rate (at most 20 times a second, never for changes of 0.005 or less).
#include <QObject>

#include <chrono>

namespace parlova {

class LevelMonitor : public QObject {
    Q_OBJECT
    Q_PROPERTY(float value READ value NOTIFY valueChanged)
public:
    using Clock = std::chrono::steady_clock;

    explicit LevelMonitor(QObject* parent = nullptr) : QObject(parent) {}

    // Normalised level of one channel: -50 dBFS and below -> 0, 0 dBFS -> 1,
    // linear in decibels between. Safe on the audio thread.
    static float rms(const float* samples, int frames) noexcept;

    float value() const { return value_; }
    float smoothed() const { return smoothed_; }

    // Feeds one level (main thread). `now` is injectable for tests.
    void update(float level, Clock::time_point now = Clock::now());
    // Back to zero when the audio that fed it stops.
    void reset();

signals:
    void valueChanged(float value);

private:
    float value_ = 0;
    float smoothed_ = 0;
    Clock::time_point lastPublish_{};
};

// Whether a newly read pitch should replace the published one: a move of at
// least 1 Hz, or a change to or from "no pitch" (0).
bool shouldPublishPitch(float published, float detected);

}  // namespace parlova
