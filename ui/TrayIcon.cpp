#include "ui/TrayIcon.h"

#include "control/VoiceSelection.h"
#include "engine/VoiceEngine.h"
#include "ui/Icons.h"
#include "voices/VoiceStore.h"

#include <QApplication>

namespace parlova::ui {

TrayIcon::TrayIcon(VoiceEngine& engine, VoiceStore& store, VoiceSelection& selection,
                   std::function<void()> showWindow, QObject* parent)
    : QObject(parent), engine_(engine), store_(store), showWindow_(std::move(showWindow)), selection_(selection) {
    icon_.setContextMenu(&menu_);
    // The menu is built as it opens, so it always shows the current state.
    connect(&menu_, &QMenu::aboutToShow, this, &TrayIcon::rebuildMenu);
    connect(&icon_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick) showWindow_();
    });
    for (auto signal : {&VoiceEngine::liveStateChanged, &VoiceEngine::callModeChanged, &VoiceEngine::bypassChanged,
                        &VoiceEngine::voiceChanged})
        connect(&engine_, signal, this, &TrayIcon::refreshIcon);
    connect(&selection_, &VoiceSelection::changed, this, &TrayIcon::refreshIcon);
    connect(&engine_.talk(), &TalkControl::statusChanged, this, &TrayIcon::refreshIcon);
    rebuildMenu();
    refreshIcon();
}

void TrayIcon::rebuildMenu() {
    menu_.clear();
    menu_.addAction(engine_.isLive() ? "Stop Live" : "Talk Live", &engine_, &VoiceEngine::toggleLive);
    QAction* natural = menu_.addAction("Natural voice");
    natural->setCheckable(true);
    natural->setChecked(engine_.bypass());
    connect(natural, &QAction::toggled, &engine_, [this](bool on) { engine_.setBypass(on); });
    menu_.addSeparator();
    for (const Voice& voice : store_.voices()) {
        QAction* item = menu_.addAction(voice.emoji.isEmpty() ? voice.name : voice.emoji + "  " + voice.name);
        item->setCheckable(true);
        const auto current = selection_.current();
        item->setChecked(current && current->kind == VoiceSelection::Kind::effect && current->id == voice.id);
        QUuid id = voice.id;
        connect(item, &QAction::triggered, this, [this, id] { selection_.selectVoice(id); });
    }
    menu_.addSeparator();
    menu_.addAction("Show Parlova", this, [this] { showWindow_(); });
    menu_.addAction("Quit", qApp, &QApplication::quit);
}

void TrayIcon::refreshIcon() {
    QColor accent(0x5b, 0x4b, 0xd6);
    QString state = "Parlova";
    if (engine_.isLive() && engine_.callMode()) {
        accent = QColor(0x1f, 0x9d, 0x55);
        state = "Parlova: in a call as " + selection_.name();
    } else if (engine_.isLive()) {
        accent = QColor(0xd9, 0x3a, 0x2b);
        state = "Parlova: live as " + selection_.name();
    }
    if (engine_.isLive() && engine_.bypass()) state += " (natural voice)";
    if (engine_.isLive() && engine_.talk().mode() != TalkMode::always) state += "\n" + engine_.talk().status();
    icon_.setIcon(appIcon(accent));
    icon_.setToolTip(state);
}

void TrayIcon::noticeStillRunning() {
    if (noticeShown_) return;
    noticeShown_ = true;
    icon_.showMessage("Parlova is still running",
                      "Your voice stays live. Use the Parlova icon to stop it or to quit.", appIcon(), 6000);
}

}  // namespace parlova::ui
