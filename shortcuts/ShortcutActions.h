#pragma once
// The actions Parlova offers as global shortcuts, with the names the desktop
// shows and the keys it proposes. Push to talk and push to mute act on press
// and release; the others on press.
#include <QString>

#include <array>

namespace parlova {

enum class ShortcutAction { pushToTalk, pushToMute, toggleNatural, nextVoice, previousVoice, toggleLive };

struct ShortcutInfo {
    ShortcutAction action;
    const char* id;               // stable id given to the desktop
    const char* description;      // what the desktop's settings list
    const char* preferredTrigger;  // a proposal in the portal's notation; "" for none
    const char* x11Key;           // key (keysym name) listened for on X11; "" for none
};

inline constexpr std::array<ShortcutInfo, 6> kShortcuts{{
    {ShortcutAction::pushToTalk, "push-to-talk", "Push to talk (hold)", "Pause", "Pause"},
    {ShortcutAction::pushToMute, "push-to-mute", "Push to mute (hold)", "", ""},
    {ShortcutAction::toggleNatural, "toggle-natural", "Natural voice on or off", "CTRL+ALT+N", ""},
    {ShortcutAction::nextVoice, "next-voice", "Next voice", "CTRL+ALT+Page_Down", ""},
    {ShortcutAction::previousVoice, "previous-voice", "Previous voice", "CTRL+ALT+Page_Up", ""},
    {ShortcutAction::toggleLive, "toggle-live", "Talk Live / Stop Live", "CTRL+ALT+L", ""},
}};

inline const ShortcutInfo* shortcutById(const QString& id) {
    for (const auto& info : kShortcuts)
        if (id == QLatin1String(info.id)) return &info;
    return nullptr;
}

}  // namespace parlova
