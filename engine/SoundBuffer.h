#pragma once
// A sound decoded once for playing into the live route or the output device:
// stereo float at the chain's rate, never changed after it is made, so the
// audio thread can read it while the main thread holds it too.
#include "engine/VoiceChain.h"

#include <memory>
#include <string>
#include <vector>

namespace parlova {

struct SoundBuffer {
    std::vector<float> left, right;
    int frames() const { return static_cast<int>(left.size()); }
    double seconds() const { return static_cast<double>(left.size()) / kChainSampleRate; }
};

// Decodes an audio file to the chain's rate; a mono file plays on both
// sides. Throws VoiceEngineError (a sentence naming the file) when it can't.
std::shared_ptr<const SoundBuffer> decodeSound(const std::string& path);

}  // namespace parlova
