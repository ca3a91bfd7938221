#pragma once
// The input level meter: a smoothed bar with a short peak hold, repainted
// about 30 times a second from the engine's level while it is visible.
#include <QTimer>
#include <QWidget>

#include <functional>

namespace parlova::ui {

class LevelMeter : public QWidget {
    Q_OBJECT
public:
    // `level` gives the current normalised level (0..1); called on every frame.
    explicit LevelMeter(std::function<float()> level, QWidget* parent = nullptr);

    QSize sizeHint() const override { return {240, 10}; }
    bool isAnimating() const { return timer_.isActive(); }

protected:
    void paintEvent(QPaintEvent*) override;
    void showEvent(QShowEvent*) override;
    void hideEvent(QHideEvent*) override;

private:
    void tick();

    std::function<float()> level_;
    QTimer timer_;
    float shown_ = 0;
    float peak_ = 0;
    int peakHoldFrames_ = 0;
};

}  // namespace parlova::ui
