#include "board/Soundboard.h"

namespace parlova {

Soundboard::Soundboard(BoardStore& store, VoiceEngine& engine, VoiceStore& voices, CloneLibrary* library,
                       QObject* parent)
    : QObject(parent), store_(store), engine_(engine), voices_(voices), library_(library) {}
Soundboard::~Soundboard() = default;
bool Soundboard::play(const QUuid&) { return false; }
void Soundboard::stop() {}
bool Soundboard::say(const QString&, const Speaker&) { return false; }
void Soundboard::previewVoice(const Voice&) {}
bool Soundboard::isPlaying() const { return false; }

}  // namespace parlova
