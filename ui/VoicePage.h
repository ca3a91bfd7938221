#pragma once
// The page of one voice: its name, Preview, a slider per field grouped by what
// it shapes (the groups in two columns, so the page needs no scrolling at the
// window's usual size), the auto-pitch switch, Reset to Default for starting
// voices, and the detected-pitch line. A view: it reports edits as whole voices and shows
// whatever voice it is given.
#include "voices/Voice.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QWidget>

#include <vector>

namespace parlova::ui {

class FieldSlider;

class VoicePage : public QWidget {
    Q_OBJECT
public:
    explicit VoicePage(QWidget* parent = nullptr);

    // Shows `voice`; keeps the keyboard focus where it is when the same voice
    // comes back edited.
    void showVoice(const Voice& voice);
    const Voice& voice() const { return voice_; }
    // The live reading of the speaker's pitch in Hz (0: none).
    void showDetectedPitch(float hz);

    FieldSlider* slider(const QString& key) const;
    QCheckBox* autoPitchSwitch() const { return autoPitch_; }
    QPushButton* previewButton() const { return preview_; }

signals:
    void edited(const Voice& voice);
    void resetRequested(const Voice& voice);
    // The user wants to hear a sentence in the voice shown.
    void previewRequested(const Voice& voice);

private:
    void editField(float Voice::*member, float value);
    void setAutoPitch(bool on);
    void updatePitchLine();

    Voice voice_;
    QLabel* emoji_;
    QLineEdit* name_;
    QLabel* caption_;
    QPushButton* reset_;
    QPushButton* preview_;
    QCheckBox* autoPitch_;
    QLabel* pitchLine_;
    std::vector<FieldSlider*> sliders_;
    float detectedPitch_ = 0;
    float lastTarget_ = 120;  // what auto pitch comes back on with
};

}  // namespace parlova::ui
