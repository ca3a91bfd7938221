#pragma once
// Global shortcuts on X11 without the portal: XInput2 raw key events on the
// root window. They report every key press and release wherever the focus is,
// without taking the key away from the focused application, so a game still
// gets the key the user holds to talk.
//
// Main thread: the X connection's socket is watched by the event loop. Built
// only where the XInput2 development files were found; elsewhere open()
// always fails.
#include "shortcuts/ShortcutActions.h"

#include <QObject>
#include <QString>

#include <memory>

class QSocketNotifier;

namespace parlova {

class X11Shortcuts : public QObject {
    Q_OBJECT
public:
    explicit X11Shortcuts(QObject* parent = nullptr);
    ~X11Shortcuts() override;

    // Connects to the X server named by DISPLAY and starts listening. On
    // failure `why` holds a sentence.
    bool open(QString* why);
    // The key listened for, as X names it ("" when none).
    static QString keyName(const ShortcutInfo& info) { return QString::fromLatin1(info.x11Key); }

signals:
    void activated(const QString& id);
    void deactivated(const QString& id);

private:
    void readEvents();

    struct Connection;
    std::unique_ptr<Connection> x_;
    QSocketNotifier* notifier_ = nullptr;
};

}  // namespace parlova
