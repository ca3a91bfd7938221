#pragma once
// One labelled slider for a float field of a voice: label, slider, value with
// its unit. Keyboard steps follow the field's step; a double-click puts back
// the factory value when the voice has one.
#include "voices/VoiceFieldRanges.h"

#include <QLabel>
#include <QSlider>
#include <QWidget>

#include <optional>

namespace parlova::ui {

class FieldSlider : public QWidget {
    Q_OBJECT
public:
    FieldSlider(const VoiceFieldRange& field, QWidget* parent = nullptr);

    const VoiceFieldRange& field() const { return field_; }
    float value() const;
    // Shows a value without announcing it as an edit.
    void showValue(float value);
    void setFactoryValue(std::optional<float> value) { factoryValue_ = value; }
    QSlider* slider() const { return slider_; }

signals:
    void edited(float value);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    int position(float value) const;
    void moved(int position);

    const VoiceFieldRange& field_;
    QSlider* slider_;
    QLabel* valueLabel_;
    std::optional<float> factoryValue_;
    float value_ = 0;
};

}  // namespace parlova::ui
