#pragma once
// The application: the migration from the former name, the model objects
// (made once, in this order), the main window, the tray, and what closing
// the window means while a call runs.
#include "board/BoardStore.h"
#include "board/Soundboard.h"
#include "cloning/CloneLibrary.h"
#include "cloning/VoiceCloner.h"
#include "control/HandsFree.h"
#include "control/VoiceSelection.h"
#include "devices/AudioDeviceList.h"
#include "devices/VirtualMic.h"
#include "engine/VoiceEngine.h"
#include "ui/MainWindow.h"
#include "ui/TrayIcon.h"
#include "voices/VoiceStore.h"

#include <QJsonObject>

#include <memory>

namespace parlova {

class ParlovaApp : public QObject {
    Q_OBJECT
public:
    struct Options {
        bool minimized = false;  // start in the tray (or minimized where there is none)
        bool call = false;       // start with call mode on
        bool live = false;       // start talking live
        QString voice;           // start with this voice
    };

    explicit ParlovaApp(const Options& options);
    ~ParlovaApp() override;

    ui::MainWindow& window() { return *window_; }
    VoiceEngine& engine() { return engine_; }
    VoiceStore& store() { return store_; }
    CloneLibrary& library() { return library_; }
    BoardStore& board() { return board_; }
    Soundboard& soundboard() { return soundboard_; }
    VoiceSelection& selection() { return selection_; }

    // Brings the window up, raised and focused.
    void showWindow();

    // The start options as a second launch hands them over, and back.
    static QJsonObject toJson(const Options& options);
    static Options fromJson(const QJsonObject& object);

private:
    // Applies start options: those of this launch, or a later one's.
    // False with the sentence in `error` when a named voice does not exist.
    bool apply(const Options& options, QString* error);
    bool windowMayClose();
    void addAppMenuItems();

    QSettings settings_;
    VoiceStore store_;
    VoiceEngine engine_;
    AudioDeviceList devices_;
    VoiceCloner cloner_;
    CloneLibrary library_;
    BoardStore board_;
    Soundboard soundboard_;
    VoiceSelection selection_;
    VirtualMicSetup micSetup_;
    HandsFree handsFree_;
    std::unique_ptr<ui::MainWindow> window_;
    std::unique_ptr<ui::TrayIcon> tray_;
};

}  // namespace parlova
