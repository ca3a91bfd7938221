#pragma once
// The level meter: a bar that rises at once and falls at a steady rate, with
// a peak mark that holds for a moment, repainted about 30 times a second from
// the engine's measured level while it is visible. The engine measures; how
// the bar moves is decided here, in decibels per second, so it moves the same
// whatever the block size or the repaint rate.
#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

#include <functional>
#include <utility>

namespace parlova::ui {

// The bar's movement, in dBFS.
struct MeterBallistics {
    static constexpr float kFloorDb = -50.0f;       // the bar's empty end
    static constexpr float kFallDbPerSecond = 24.0f;
    static constexpr float kPeakHoldSeconds = 0.8f;
    static constexpr float kPeakFallDbPerSecond = 12.0f;

    float barDb = kFloorDb;
    float peakDb = kFloorDb;
    float peakHeldFor = 0;

    // Follows a measured level and peak after `seconds` have passed.
    void advance(float levelDb, float measuredPeakDb, float seconds);
    // 0..1 along the bar, linear in decibels from kFloorDb to 0 dBFS.
    static float position(float db);
};

class LevelMeter : public QWidget {
    Q_OBJECT
public:
    // `level` gives the latest measured RMS level and peak in dBFS.
    explicit LevelMeter(std::function<std::pair<float, float>()> level, QWidget* parent = nullptr);

    QSize sizeHint() const override { return {240, 10}; }
    bool isAnimating() const { return timer_.isActive(); }
    const MeterBallistics& ballistics() const { return ballistics_; }

protected:
    void paintEvent(QPaintEvent*) override;
    void showEvent(QShowEvent*) override;
    void hideEvent(QHideEvent*) override;

private:
    void tick();

    std::function<std::pair<float, float>()> level_;
    QTimer timer_;
    QElapsedTimer clock_;
    MeterBallistics ballistics_;
};

}  // namespace parlova::ui
