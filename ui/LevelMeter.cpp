#include "ui/LevelMeter.h"

#include <QPainter>
#include <QPalette>

#include <algorithm>

namespace parlova::ui {

namespace {
constexpr int kFrameMs = 33;
}  // namespace

void MeterBallistics::advance(float levelDb, float measuredPeakDb, float seconds) {
    levelDb = std::max(levelDb, kFloorDb);
    barDb = levelDb >= barDb ? levelDb : std::max(levelDb, barDb - kFallDbPerSecond * seconds);
    const float top = std::max(barDb, measuredPeakDb);
    if (top >= peakDb) {
        peakDb = top;
        peakHeldFor = 0;
    } else if ((peakHeldFor += seconds) > kPeakHoldSeconds) {
        peakDb = std::max(top, peakDb - kPeakFallDbPerSecond * seconds);
    }
}

float MeterBallistics::position(float db) { return std::clamp((db - kFloorDb) / -kFloorDb, 0.0f, 1.0f); }

LevelMeter::LevelMeter(std::function<std::pair<float, float>()> level, QWidget* parent)
    : QWidget(parent), level_(std::move(level)) {
    setMinimumHeight(8);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName("Input level");
    timer_.setInterval(kFrameMs);
    connect(&timer_, &QTimer::timeout, this, &LevelMeter::tick);
}

void LevelMeter::tick() {
    const auto [levelDb, peakDb] = level_ ? level_() : std::pair{MeterBallistics::kFloorDb, MeterBallistics::kFloorDb};
    const float seconds = clock_.isValid() ? static_cast<float>(clock_.restart()) / 1000.0f : kFrameMs / 1000.0f;
    if (!clock_.isValid()) clock_.start();
    ballistics_.advance(levelDb, peakDb, seconds);
    update();
}

void LevelMeter::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    QRectF r = rect().adjusted(0.5, 0.5, -0.5, -0.5);
    double radius = r.height() / 2;
    p.setPen(Qt::NoPen);
    p.setBrush(palette().color(QPalette::Mid));
    p.drawRoundedRect(r, radius, radius);
    const float bar = MeterBallistics::position(ballistics_.barDb);
    const float peak = MeterBallistics::position(ballistics_.peakDb);
    // Red from -5 dBFS: close to clipping.
    QColor fill = ballistics_.barDb > -5.0f ? QColor(0xd9, 0x48, 0x3b) : palette().color(QPalette::Highlight);
    p.setBrush(fill);
    p.drawRoundedRect(QRectF(r.left(), r.top(), r.width() * bar, r.height()), radius, radius);
    if (peak > 0.01f) {
        p.setBrush(palette().color(QPalette::Text));
        p.drawRect(QRectF(r.left() + r.width() * peak - 1.5, r.top(), 2, r.height()));
    }
}

void LevelMeter::showEvent(QShowEvent*) {
    clock_.invalidate();
    timer_.start();
}

void LevelMeter::hideEvent(QHideEvent*) {
    // Nothing to paint for: no wake-ups while the window is hidden or in the tray.
    timer_.stop();
}

}  // namespace parlova::ui
