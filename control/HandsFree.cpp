#include "control/HandsFree.h"

#include "engine/LiveOwner.h"
#include "engine/VoiceEngine.h"

namespace parlova {

HandsFree::HandsFree(VoiceEngine& engine, VoiceSelection& selection, QObject* parent)
    : QObject(parent), commands_(engine, selection), server_(commands_) {
    shortcuts_.drive([this](const QStringList& words) { commands_.run(words); }, engine.talk());
    commands_.setShortcutHint([this] { return shortcuts_.hint(); });
    connect(&shortcuts_, &GlobalShortcuts::changed, this, &HandsFree::shortcutsChanged);
}

bool HandsFree::start(QString* error, const QString& path) {
    const bool listening = server_.listen(error, path);
    // Other processes find the live owner's commands there.
    if (listening) LiveOwner::setControlPath(server_.path());
    shortcuts_.start();
    return listening;
}

}  // namespace parlova
