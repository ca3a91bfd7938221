#include "shortcuts/X11Shortcuts.h"

#include <QSocketNotifier>

#ifdef PARLOVA_HAVE_XINPUT2
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#endif

#include <vector>

namespace parlova {

#ifdef PARLOVA_HAVE_XINPUT2

struct X11Shortcuts::Connection {
    Display* display = nullptr;
    int opcode = 0;
    struct Key {
        int keycode;
        QString id;
        bool down = false;
    };
    std::vector<Key> keys;
    ~Connection() {
        if (display) XCloseDisplay(display);
    }
};

X11Shortcuts::X11Shortcuts(QObject* parent) : QObject(parent) {}
X11Shortcuts::~X11Shortcuts() = default;

bool X11Shortcuts::open(QString* why) {
    auto x = std::make_unique<Connection>();
    x->display = XOpenDisplay(nullptr);
    if (!x->display) {
        if (why) *why = QStringLiteral("There is no X11 display.");
        return false;
    }
    int event = 0, error = 0, major = 2, minor = 0;
    if (!XQueryExtension(x->display, "XInputExtension", &x->opcode, &event, &error) ||
        XIQueryVersion(x->display, &major, &minor) != Success) {
        if (why) *why = QStringLiteral("The X server has no XInput2.");
        return false;
    }
    for (const auto& info : kShortcuts) {
        if (!*info.x11Key) continue;
        const KeySym sym = XStringToKeysym(info.x11Key);
        const int keycode = sym == NoSymbol ? 0 : XKeysymToKeycode(x->display, sym);
        if (keycode != 0) x->keys.push_back({keycode, QString::fromLatin1(info.id)});
    }
    unsigned char mask[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(mask, XI_RawKeyPress);
    XISetMask(mask, XI_RawKeyRelease);
    XIEventMask events{XIAllMasterDevices, sizeof mask, mask};
    XISelectEvents(x->display, DefaultRootWindow(x->display), &events, 1);
    XFlush(x->display);
    x_ = std::move(x);
    notifier_ = new QSocketNotifier(ConnectionNumber(x_->display), QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, &X11Shortcuts::readEvents);
    return true;
}

void X11Shortcuts::readEvents() {
    Display* display = x_->display;
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        XGenericEventCookie* cookie = &event.xcookie;
        if (cookie->type != GenericEvent || cookie->extension != x_->opcode || !XGetEventData(display, cookie)) continue;
        const auto* raw = static_cast<const XIRawEvent*>(cookie->data);
        const bool press = cookie->evtype == XI_RawKeyPress;
        for (auto& key : x_->keys) {
            // A held key repeats its press: only the first one counts.
            if (key.keycode != raw->detail || key.down == press) continue;
            key.down = press;
            if (press)
                emit activated(key.id);
            else
                emit deactivated(key.id);
        }
        XFreeEventData(display, cookie);
    }
}

#else

struct X11Shortcuts::Connection {};
X11Shortcuts::X11Shortcuts(QObject* parent) : QObject(parent) {}
X11Shortcuts::~X11Shortcuts() = default;

bool X11Shortcuts::open(QString* why) {
    if (why) *why = QStringLiteral("This build of Parlova has no X11 key support.");
    return false;
}

void X11Shortcuts::readEvents() {}

#endif

}  // namespace parlova
