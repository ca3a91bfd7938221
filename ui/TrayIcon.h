#pragma once
// The notification-area icon: shows whether Parlova is idle, live or in a
// call, and carries the actions a running call needs without the window.
#include <QMenu>
#include <QSystemTrayIcon>

#include <functional>

namespace parlova {
class VoiceEngine;
class VoiceSelection;
class VoiceStore;
}  // namespace parlova

namespace parlova::ui {

class TrayIcon : public QObject {
    Q_OBJECT
public:
    // `showWindow` brings the window back; the voice items select through `selection`.
    TrayIcon(VoiceEngine& engine, VoiceStore& store, VoiceSelection& selection, std::function<void()> showWindow,
             QObject* parent = nullptr);

    // Whether the desktop shows tray icons at all (plain GNOME does not).
    static bool desktopHasTray() { return QSystemTrayIcon::isSystemTrayAvailable(); }
    void show() { icon_.show(); }
    // Says once per run that closing the window left the call running.
    void noticeStillRunning();
    QMenu* menu() { return &menu_; }
    QString toolTip() const { return icon_.toolTip(); }

private:
    void rebuildMenu();
    void refreshIcon();

    VoiceEngine& engine_;
    VoiceStore& store_;
    std::function<void()> showWindow_;
    VoiceSelection& selection_;
    QSystemTrayIcon icon_;
    QMenu menu_;
    bool noticeShown_ = false;
};

}  // namespace parlova::ui
