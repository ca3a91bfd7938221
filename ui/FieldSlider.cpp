#include "ui/FieldSlider.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QSignalBlocker>

#include <algorithm>
#include <cmath>

namespace parlova::ui {

FieldSlider::FieldSlider(const VoiceFieldRange& field, QWidget* parent) : QWidget(parent), field_(field) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* label = new QLabel(QString::fromUtf8(field.label), this);
    label->setMinimumWidth(120);
    slider_ = new QSlider(Qt::Horizontal, this);
    slider_->setRange(0, int(std::lround((field.maximum - field.minimum) / field.step)));
    slider_->setSingleStep(1);
    slider_->setPageStep(std::max(1, slider_->maximum() / 10));
    slider_->setAccessibleName(QString::fromUtf8(field.label));
    slider_->installEventFilter(this);
    label->setBuddy(slider_);
    valueLabel_ = new QLabel(this);
    valueLabel_->setMinimumWidth(80);
    valueLabel_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    layout->addWidget(label);
    layout->addWidget(slider_, 1);
    layout->addWidget(valueLabel_);
    connect(slider_, &QSlider::valueChanged, this, &FieldSlider::moved);
}

float FieldSlider::value() const { return value_; }

int FieldSlider::position(float value) const {
    float clamped = std::clamp(value, field_.minimum, field_.maximum);
    return int(std::lround((clamped - field_.minimum) / field_.step));
}

void FieldSlider::showValue(float value) {
    value_ = value;
    QSignalBlocker block(slider_);
    slider_->setValue(position(value));
    valueLabel_->setText(formatVoiceFieldValue(field_, value));
}

void FieldSlider::moved(int position) {
    // Snap to the step so stored values read back as typed ("3.5", not 3.4999).
    float value = field_.minimum + float(position) * field_.step;
    value = float(std::round(double(value) * std::pow(10.0, field_.decimals + 1)) /
                  std::pow(10.0, field_.decimals + 1));
    if (value == value_) return;
    value_ = value;
    valueLabel_->setText(formatVoiceFieldValue(field_, value));
    emit edited(value);
}

bool FieldSlider::eventFilter(QObject* watched, QEvent* event) {
    if (watched == slider_ && event->type() == QEvent::MouseButtonDblClick && factoryValue_) {
        showValue(*factoryValue_);
        emit edited(*factoryValue_);
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

}  // namespace parlova::ui
