#include "engine/VoiceEngine.h"

namespace parlova {

void VoiceEngine::playSound(std::shared_ptr<const SoundBuffer>, SoundLevels) {}
void VoiceEngine::stopSounds() {}
bool VoiceEngine::soundsPlaying() const { return false; }

}  // namespace parlova
