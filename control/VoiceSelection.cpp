#include "control/VoiceSelection.h"

#include "cloning/CloneLibrary.h"
#include "cloning/VoiceCloner.h"
#include "engine/VoiceEngine.h"
#include "voices/VoiceStore.h"

#include <vector>

namespace parlova {

VoiceSelection::VoiceSelection(VoiceEngine& engine, VoiceStore& store, CloneLibrary* library, QObject* parent)
    : QObject(parent), engine_(engine), store_(store), library_(library) {
    connect(&store_, &VoiceStore::voicesChanged, this, &VoiceSelection::followVoices);
    if (library_) connect(library_, &CloneLibrary::voicesChanged, this, &VoiceSelection::followClones);
}

QString VoiceSelection::name() const {
    if (!current_) return {};
    if (current_->kind == Kind::clone && library_)
        if (auto clone = library_->voice(current_->id)) return clone->name;
    return effectName_;
}

bool VoiceSelection::selectVoice(const QUuid& id) {
    if (current_ == Choice{Kind::effect, id}) return true;  // the engine carries it already
    for (const Voice& voice : store_.voices())
        if (voice.id == id) {
            apply({Kind::effect, id}, &voice);
            return true;
        }
    if (id == Voice::natural().id) {
        apply({Kind::effect, id}, &Voice::natural());
        return true;
    }
    return false;
}

bool VoiceSelection::selectClone(const QUuid& id) {
    if (!library_ || !library_->voice(id)) return false;
    if (current_ == Choice{Kind::clone, id}) return true;
    apply({Kind::clone, id}, nullptr);
    return true;
}

void VoiceSelection::selectEffect(const Voice& voice) { apply({Kind::effect, voice.id}, &voice); }

bool VoiceSelection::selectNamed(const QString& name) {
    const auto choice = findNamed(name);
    if (!choice) return false;
    return choice->kind == Kind::clone ? selectClone(choice->id) : selectVoice(choice->id);
}

std::optional<VoiceSelection::Choice> VoiceSelection::findNamed(const QString& name, std::optional<Kind> kind) const {
    if (kind != Kind::clone) {
        if (auto voice = store_.find(name)) return Choice{Kind::effect, voice->id};
        if (name.compare(Voice::natural().name, Qt::CaseInsensitive) == 0) return Choice{Kind::effect, Voice::natural().id};
    }
    if (library_ && kind != Kind::effect)
        if (auto clone = library_->find(name)) return Choice{Kind::clone, clone->id};
    return std::nullopt;
}

bool VoiceSelection::step(int direction) {
    std::vector<Choice> order;
    for (const Voice& voice : store_.voices()) order.push_back({Kind::effect, voice.id});
    // Only cloned voices that can speak: stepping onto one without samples, or
    // before cloning is set up, would end a running call with an error.
    const VoiceCloner* cloner = engine_.cloner();
    if (library_ && cloner && cloner->isInstalled())
        for (const ClonedVoice& clone : library_->voices())
            if (!clone.samples.isEmpty()) order.push_back({Kind::clone, clone.id});
    if (order.empty()) return false;
    const long count = static_cast<long>(order.size());
    // Before anything was selected, the engine's voice is where a step starts.
    const Choice from = current_.value_or(Choice{Kind::effect, engine_.voice().id});
    long index = -1;
    for (long i = 0; i < count; ++i)
        if (order[static_cast<size_t>(i)] == from) index = i;
    // From outside the list (nothing, or "Natural"), next is the first and prev the last.
    if (index < 0) index = direction > 0 ? -1 : 0;
    index = ((index + (direction > 0 ? 1 : -1)) % count + count) % count;
    const Choice& next = order[static_cast<size_t>(index)];
    return next.kind == Kind::clone ? selectClone(next.id) : selectVoice(next.id);
}

void VoiceSelection::apply(const Choice& choice, const Voice* effect) {
    const bool moved = !current_ || !(*current_ == choice);
    current_ = choice;
    if (choice.kind == Kind::effect) {
        effectName_ = effect->name;
        // Leaving a cloned voice first, so a running route is rebuilt once,
        // with the effect chain carrying this voice.
        engine_.set(*effect);
        engine_.setClone({});
    } else {
        effectName_.clear();
        // The engine readies the worker for the voice and rebuilds a running
        // route with the clone stage.
        engine_.setClone(library_->target(choice.id));
    }
    if (moved) emit changed();
}

void VoiceSelection::followVoices() {
    if (!current_ || current_->kind != Kind::effect || current_->id == Voice::natural().id) return;
    for (const Voice& voice : store_.voices())
        if (voice.id == current_->id) {
            effectName_ = voice.name;
            engine_.set(voice);
            return;
        }
    // The selected voice was deleted: the first one takes its place.
    if (!store_.voices().empty()) selectVoice(store_.voices().front().id);
}

void VoiceSelection::followClones() {
    if (!current_ || current_->kind != Kind::clone) return;
    if (library_->voice(current_->id)) {
        // Samples added or removed: the engine speaks with the new set
        // (nothing happens when the target is unchanged).
        engine_.setClone(library_->target(current_->id));
        return;
    }
    if (!store_.voices().empty()) selectVoice(store_.voices().front().id);
}

}  // namespace parlova
