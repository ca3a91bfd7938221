#pragma once
// Everything that lets Parlova be driven without its window, in one object
// for the app and "parlova-cli live": the control channel's commands and
// socket, and the global shortcuts acting on the engine and the voice list.
//
// Main thread only.
#include "control/ControlServer.h"
#include "shortcuts/GlobalShortcuts.h"

#include <QObject>

namespace parlova {

class HandsFree : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString shortcutHint READ shortcutHint NOTIFY shortcutsChanged)

public:
    HandsFree(VoiceEngine& engine, VoiceSelection& selection, QObject* parent = nullptr);

    // Listens for commands and looks for a shortcut mechanism. Returns false
    // with a sentence in `error` when the control socket could not be opened
    // (the shortcuts are looked for either way).
    bool start(QString* error, const QString& path = controlSocketPath());

    // The soundboard the commands and the board's shortcuts play (both outlive this).
    void setBoard(BoardStore* store, Soundboard* board) { commands_.setBoard(store, board); }

    ControlCommands& commands() { return commands_; }
    GlobalShortcuts& shortcuts() { return shortcuts_; }
    QString shortcutHint() const { return shortcuts_.hint(); }

signals:
    void shortcutsChanged();

private:
    ControlCommands commands_;
    ControlServer server_;
    GlobalShortcuts shortcuts_;
};

}  // namespace parlova
