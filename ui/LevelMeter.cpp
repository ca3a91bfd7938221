#include "ui/LevelMeter.h"

#include <QPainter>
#include <QPalette>

#include <algorithm>

namespace parlova::ui {

namespace {
constexpr int kFrameMs = 33;
constexpr int kPeakHoldFrames = 24;  // about 0.8 s
}  // namespace

LevelMeter::LevelMeter(std::function<float()> level, QWidget* parent) : QWidget(parent), level_(std::move(level)) {
    setMinimumHeight(8);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName("Input level");
    timer_.setInterval(kFrameMs);
    connect(&timer_, &QTimer::timeout, this, &LevelMeter::tick);
}

void LevelMeter::tick() {
    float target = std::clamp(level_ ? level_() : 0.f, 0.f, 1.f);
    // Fast attack, calm release.
    shown_ = target > shown_ ? target : shown_ + (target - shown_) * 0.25f;
    if (shown_ >= peak_) {
        peak_ = shown_;
        peakHoldFrames_ = kPeakHoldFrames;
    } else if (peakHoldFrames_ > 0) {
        --peakHoldFrames_;
    } else {
        peak_ = std::max(shown_, peak_ - 0.02f);
    }
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
    QColor fill = shown_ > 0.9f ? QColor(0xd9, 0x48, 0x3b) : palette().color(QPalette::Highlight);
    p.setBrush(fill);
    p.drawRoundedRect(QRectF(r.left(), r.top(), r.width() * shown_, r.height()), radius, radius);
    if (peak_ > 0.01f) {
        p.setBrush(palette().color(QPalette::Text));
        p.drawRect(QRectF(r.left() + r.width() * peak_ - 1.5, r.top(), 2, r.height()));
    }
}

void LevelMeter::showEvent(QShowEvent*) { timer_.start(); }

void LevelMeter::hideEvent(QHideEvent*) {
    // Nothing to paint for: no wake-ups while the window is hidden or in the tray.
    timer_.stop();
}

}  // namespace parlova::ui
