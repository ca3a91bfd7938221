#pragma once
// The actions Parlova offers as global shortcuts, with the names the desktop
// shows and the keys it proposes. Push to talk and push to mute act on press
// and release; the others on press. The board's sounds come with no proposed
// keys: the user gives them the keys they want in the desktop's settings.
#include <QString>

#include <array>

namespace parlova {

enum class ShortcutAction {
    pushToTalk,
    pushToMute,
    toggleNatural,
    nextVoice,
    previousVoice,
    toggleLive,
    // The sound of the board on the key "1".."9".
    boardSound1,
    boardSound2,
    boardSound3,
    boardSound4,
    boardSound5,
    boardSound6,
    boardSound7,
    boardSound8,
    boardSound9,
    stopBoard,
};

// The board key ("1".."9") an action plays; 0 for the other actions.
inline int boardSlot(ShortcutAction action) {
    const int slot = static_cast<int>(action) - static_cast<int>(ShortcutAction::boardSound1) + 1;
    return slot >= 1 && slot <= 9 ? slot : 0;
}

struct ShortcutInfo {
    ShortcutAction action;
    const char* id;               // stable id given to the desktop
    const char* description;      // what the desktop's settings list
    const char* preferredTrigger;  // a proposal in the portal's notation; "" for none
    const char* x11Key;           // key (keysym name) listened for on X11; "" for none
};

inline constexpr std::array<ShortcutInfo, 16> kShortcuts{{
    {ShortcutAction::pushToTalk, "push-to-talk", "Push to talk (hold)", "Pause", "Pause"},
    {ShortcutAction::pushToMute, "push-to-mute", "Push to mute (hold)", "", ""},
    {ShortcutAction::toggleNatural, "toggle-natural", "Natural voice on or off", "CTRL+ALT+N", ""},
    {ShortcutAction::nextVoice, "next-voice", "Next voice", "CTRL+ALT+Page_Down", ""},
    {ShortcutAction::previousVoice, "previous-voice", "Previous voice", "CTRL+ALT+Page_Up", ""},
    {ShortcutAction::toggleLive, "toggle-live", "Talk Live / Stop Live", "CTRL+ALT+L", ""},
    {ShortcutAction::boardSound1, "board-sound-1", "Play board sound 1", "", ""},
    {ShortcutAction::boardSound2, "board-sound-2", "Play board sound 2", "", ""},
    {ShortcutAction::boardSound3, "board-sound-3", "Play board sound 3", "", ""},
    {ShortcutAction::boardSound4, "board-sound-4", "Play board sound 4", "", ""},
    {ShortcutAction::boardSound5, "board-sound-5", "Play board sound 5", "", ""},
    {ShortcutAction::boardSound6, "board-sound-6", "Play board sound 6", "", ""},
    {ShortcutAction::boardSound7, "board-sound-7", "Play board sound 7", "", ""},
    {ShortcutAction::boardSound8, "board-sound-8", "Play board sound 8", "", ""},
    {ShortcutAction::boardSound9, "board-sound-9", "Play board sound 9", "", ""},
    {ShortcutAction::stopBoard, "stop-board", "Stop board sounds", "", ""},
}};

inline const ShortcutInfo* shortcutById(const QString& id) {
    for (const auto& info : kShortcuts)
        if (id == QLatin1String(info.id)) return &info;
    return nullptr;
}

}  // namespace parlova
