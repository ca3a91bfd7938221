#pragma once
// The main window: the sidebar of voices and cloned voices; beside it three
// pages under a tab bar (the selected voice's page or the microphone-refused
// screen, the soundboard, and the calls and microphone settings) above the
// transport card, which stays in view whichever page shows; and the "Voice"
// menu. A view: the store, the engine and the device list hold
// every piece of state; the window only forwards what the user does.
#include "ui/Sidebar.h"
#include "voices/Voice.h"

#include <QAction>
#include <QMainWindow>
#include <QStackedWidget>
#include <QTabWidget>

#include <functional>

class QSettings;

namespace parlova {
class AudioDeviceList;
class BoardStore;
class CloneLibrary;
class HandsFree;
class Soundboard;
class VoiceCloner;
class VirtualMicSetup;
class VoiceEngine;
class VoiceSelection;
class VoiceStore;
}  // namespace parlova

namespace parlova::ui {

class BoardPanel;
class CallsPanel;
class ClonePage;
class MicPanel;
class TransportCard;
class VoicePage;

// The model objects the window shows, made once by the application.
struct AppModel {
    VoiceStore& store;
    VoiceEngine& engine;
    AudioDeviceList& devices;
    VirtualMicSetup& micSetup;
    CloneLibrary& library;
    VoiceCloner& cloner;
    QSettings& settings;
    VoiceSelection& selection;
    HandsFree* handsFree;  // null where nothing listens for keys or commands
    // The soundboard and its player, both or neither (no board page, no Preview).
    BoardStore* board = nullptr;
    Soundboard* soundboard = nullptr;
};

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(AppModel model, QWidget* parent = nullptr);

    Sidebar* sidebar() const { return sidebar_; }
    VoicePage* voicePage() const { return voicePage_; }
    ClonePage* clonePage() const { return clonePage_; }
    TransportCard* transport() const { return transport_; }
    MicPanel* micPanel() const { return micPanel_; }
    CallsPanel* callsPanel() const { return callsPanel_; }
    // Null without a soundboard.
    BoardPanel* boardPanel() const { return boardPanel_; }
    // The size the window opens at where the screen has the room.
    static QSize defaultSize() { return {1000, 820}; }
    // The page the voice tab shows: "placeholder", "voice", "clone" or "micDenied".
    QString currentPage() const;
    // The tab shown: "voice", "board" or "calls"; showSection() returns false
    // for a tab the window doesn't have.
    QString currentSection() const;
    bool showSection(const QString& section);
    // Selects the first voice, else the first cloned voice, whose name
    // matches case-insensitively.
    bool selectVoiceNamed(const QString& name);

    QAction* liveAction() const { return liveAction_; }
    QAction* recordAction() const { return recordAction_; }
    QAction* playAction() const { return playAction_; }
    QAction* openAction() const { return openAction_; }
    // The "Parlova" menu, where the application adds its own items.
    QMenu* appMenu() const { return appMenu_; }
    // Decides what closing the window does; returns whether the window may close.
    void setCloseHandler(std::function<bool()> handler) { closeHandler_ = std::move(handler); }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* makeSidebarColumn();
    QWidget* makePlaceholder();
    QWidget* makeMicDeniedScreen();
    QWidget* makeCallsPage();
    void makeBoardKeys();
    void makeMenus();
    void refreshRows();
    void refreshMenu();
    void refreshDetail();
    void selectionChanged(const std::optional<SidebarSelection>& selection);
    void voiceEdited(const Voice& voice);
    void newVoiceFromSelected();
    void newClonedVoice();
    void deleteVoice(const QUuid& id);
    void deleteClone(const QUuid& id);
    // Shows the selection's voice: the sidebar row, the page, the voice's name.
    void followSelection();
    void showSelected();
    void showError();
    const Voice* voiceWithId(const QUuid& id) const;

    AppModel model_;
    Sidebar* sidebar_;
    QTabWidget* sections_;
    QStackedWidget* detail_;
    QWidget* placeholder_;
    QWidget* voiceScroll_;
    VoicePage* voicePage_;
    QWidget* cloneScroll_;
    ClonePage* clonePage_;
    QWidget* micDenied_;
    TransportCard* transport_;
    MicPanel* micPanel_;
    CallsPanel* callsPanel_;
    QWidget* callsPage_;
    BoardPanel* boardPanel_ = nullptr;
    QMenu* appMenu_ = nullptr;
    QAction* liveAction_ = nullptr;
    QAction* recordAction_ = nullptr;
    QAction* playAction_ = nullptr;
    QAction* openAction_ = nullptr;
    bool showingError_ = false;
    std::function<bool()> closeHandler_;
};

}  // namespace parlova::ui
