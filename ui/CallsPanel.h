#pragma once
// The calls section of the transport card: call mode and hear-myself, the
// virtual microphone's install, update and removal, the device pickers and
// the setup help. A view over the engine, the device list and the installer.
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QWidget>

namespace parlova {
class AudioDeviceList;
class VirtualMicSetup;
class VoiceEngine;
}  // namespace parlova

namespace parlova::ui {

class CallsPanel : public QWidget {
    Q_OBJECT
public:
    CallsPanel(VoiceEngine& engine, AudioDeviceList& devices, VirtualMicSetup& setup, QWidget* parent = nullptr);

    // The call setup steps, as rich text, for the given virtual mic name.
    static QString callHelpHtml(const QString& cableName);

    QCheckBox* callModeSwitch() const { return callMode_; }
    QPushButton* installButton() const { return install_; }
    QPushButton* updateButton() const { return update_; }
    QLabel* explanation() const { return explanation_; }
    QLabel* installPrompt() const { return installPrompt_; }
    QLabel* formerNotice() const { return formerNotice_; }
    QLabel* waitingText() const { return waiting_; }
    QComboBox* inputPicker() const { return inputPicker_; }
    QComboBox* outputPicker() const { return outputPicker_; }
    QLabel* micElsewhereNotice() const { return elsewhere_; }
    QPushButton* takeBackButton() const { return takeBack_; }

    void refresh();

private:
    void fillPicker(QComboBox* picker, bool inputs);
    void showHelp();
    void removeMic();

    VoiceEngine& engine_;
    AudioDeviceList& devices_;
    VirtualMicSetup& setup_;
    QCheckBox* callMode_;
    QCheckBox* hearMyself_;
    QPushButton* help_;
    QLabel* explanation_;
    QLabel* installPrompt_;
    QPushButton* install_;
    QWidget* waitingRow_;
    QLabel* waiting_;
    QLabel* formerNotice_;
    QPushButton* update_;
    QPushButton* remove_;
    QWidget* elsewhereRow_;
    QLabel* elsewhere_;
    QPushButton* takeBack_;
    QComboBox* inputPicker_;
    QComboBox* outputPicker_;
};

}  // namespace parlova::ui
