#pragma once
// The page of one cloned voice: setup of the cloning runtime where it is
// missing, the consent box, the samples (play, move to top, remove, edit or
// redo the transcript), recording a sample from a reading script, adding
// files or the current clip, and text to speech with its takes. A view over
// the clone library, the cloner and the engine's clip recorder.
#include "cloning/ClonedVoice.h"
#include "cloning/VoiceCloner.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSet>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>

class QSettings;

namespace parlova {
class CloneLibrary;
class VoiceCloner;
class VoiceEngine;
}  // namespace parlova

namespace parlova::ui {

class ClonePage : public QWidget {
    Q_OBJECT
public:
    ClonePage(CloneLibrary& library, VoiceCloner& cloner, VoiceEngine& engine, QSettings& settings,
              QWidget* parent = nullptr);

    void showVoice(const QUuid& voiceID);
    QUuid voiceID() const { return voiceID_; }

    QLabel* summary() const { return summary_; }
    QLabel* blocker() const { return blocker_; }
    QPushButton* generateButton() const { return generate_; }
    QCheckBox* consent() const { return consent_; }
    QPushButton* setupButton() const { return setup_; }
    QLabel* setupStatus() const { return setupStatus_; }
    QWidget* samplesBox() const { return samples_; }
    QWidget* takesBox() const { return takes_; }

private:
    QWidget* makeSetup();
    QWidget* makeRecorder();
    QWidget* makeSpeech();
    void refresh();
    void refreshSetup();
    void refreshSamples();
    bool editingTranscript() const;
    void refreshTakes();
    void refreshGenerate();
    void newScript();
    void toggleSampleRecording();
    void recordingTick();
    void recordingFinished();
    void addSampleFile(const QString& path, const QStringList& script = {});
    void transcribe(const VoiceSample& sample, const QStringList& script = {});
    void generate(int seed);
    void tookOne(const std::optional<Take>& take, const QString& error);
    void play(const QString& file);

    CloneLibrary& library_;
    VoiceCloner& cloner_;
    VoiceEngine& engine_;
    QSettings& settings_;
    QUuid voiceID_;
    QSet<QUuid> consented_;  // voices the user confirmed permission for, this run

    QLineEdit* name_;
    QLabel* summary_;
    QWidget* setupBox_;
    QPushButton* setup_;
    QLabel* setupStatus_;
    QProgressBar* setupBusy_;
    QCheckBox* consent_;
    QWidget* samples_;
    QVBoxLayout* samplesLayout_;
    QLabel* script_;
    QStringList scriptSentences_;
    QPushButton* recordSample_;
    QLabel* recordHint_;
    QPushButton* addFiles_;
    QPushButton* addClip_;
    QPlainTextEdit* text_;
    QComboBox* model_;
    QLabel* modelInfo_;
    QCheckBox* playWhenReady_;
    QPushButton* generate_;
    QLabel* blocker_;
    QLabel* clonerStatus_;
    QWidget* takes_;
    QVBoxLayout* takesLayout_;

    bool recordingSample_ = false;
    QTimer recordingTimer_;
    QSet<QUuid> transcribing_;
    bool samplesStale_ = false;  // rows to rebuild once the transcript field is left
};

}  // namespace parlova::ui
