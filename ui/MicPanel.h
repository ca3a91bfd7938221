#pragma once
// The microphone's own settings, beside the calls section: "Clean up my mic"
// with its gate threshold, and when the voice reaches calls (always, push to
// talk, push to mute) with the way the key is pressed on this desktop.
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QSlider>
#include <QWidget>

namespace parlova {
class HandsFree;
class VoiceEngine;
}  // namespace parlova

namespace parlova::ui {

class MicPanel : public QWidget {
    Q_OBJECT
public:
    // `handsFree` may be null (no control channel or shortcuts in this process).
    MicPanel(VoiceEngine& engine, HandsFree* handsFree, QWidget* parent = nullptr);

    QCheckBox* cleanMicSwitch() const { return cleanMic_; }
    QSlider* gateSlider() const { return gate_; }
    QComboBox* talkModePicker() const { return talkMode_; }
    QLabel* shortcutHint() const { return hint_; }

private:
    void refresh();

    VoiceEngine& engine_;
    HandsFree* handsFree_;
    QCheckBox* cleanMic_;
    QSlider* gate_;
    QLabel* gateValue_;
    QComboBox* talkMode_;
    QLabel* hint_;
};

}  // namespace parlova::ui
