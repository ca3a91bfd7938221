#pragma once
// The compact strip under the window's pages that starts and stops everything
// that makes sound: Talk Live, Record, Natural voice, Play in Voice, the audio
// menu, the measured delay, the status sentence, and the level meter with the
// pitch heard now. It stays in view whichever page the window shows, and holds
// no state: every label is recomputed from the engine's flags.
#include "ui/TransportStatus.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QToolButton>
#include <QWidget>

namespace parlova {
class VoiceEngine;
}  // namespace parlova

namespace parlova::ui {

class LevelMeter;

class TransportCard : public QWidget {
    Q_OBJECT
public:
    explicit TransportCard(VoiceEngine& engine, QWidget* parent = nullptr);

    // The name the status sentence uses for the voice on screen.
    void setVoiceName(const QString& name);
    // The live reading of the speaker's pitch in Hz (0: none), beside the meter.
    void showDetectedPitch(float hz);

    QString status() const { return status_->text(); }
    TransportState state() const;
    QPushButton* liveButton() const { return live_; }
    QPushButton* recordButton() const { return record_; }
    QPushButton* playButton() const { return play_; }
    QCheckBox* naturalSwitch() const { return natural_; }
    QAction* exportAction() const { return export_; }
    QLabel* delayLabel() const { return delay_; }
    LevelMeter* meter() const { return meter_; }
    QLabel* pitchLabel() const { return pitch_; }

    // Asks for a file and opens it as the clip (also the Voice menu's item).
    void openAudioFile();
    void exportClip();

private:
    void refresh();
    void refreshDelay();

    VoiceEngine& engine_;
    QString voiceName_;
    QPushButton* live_;
    QPushButton* record_;
    QCheckBox* natural_;
    QPushButton* play_;
    QToolButton* audioMenu_;
    QAction* export_;
    QComboBox* cloneDelay_;
    QComboBox* effectDelay_;
    QLabel* delay_;
    QProgressBar* exportBar_;
    QLabel* status_;
    LevelMeter* meter_;
    QLabel* pitch_;
    QTimer delayTimer_;
};

}  // namespace parlova::ui
