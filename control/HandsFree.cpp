#include "control/HandsFree.h"

#include "engine/VoiceEngine.h"

namespace parlova {

HandsFree::HandsFree(VoiceEngine& engine, VoiceStore& store, QObject* parent)
    : QObject(parent), commands_(engine, store), server_(commands_) {
    shortcuts_.drive(commands_, engine.talk());
    commands_.setShortcutHint([this] { return shortcuts_.hint(); });
    connect(&shortcuts_, &GlobalShortcuts::changed, this, &HandsFree::shortcutsChanged);
}

bool HandsFree::start(QString* error) {
    const bool listening = server_.listen(error);
    shortcuts_.start();
    return listening;
}

}  // namespace parlova
