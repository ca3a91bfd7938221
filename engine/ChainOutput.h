#pragma once
// What an output device pulls in live mode and playback: the chain's stereo,
// its first channel tapped for the level meter, scaled by the main-mixer
// volume, and optionally copied into a monitor bridge. A failed chain render
// plays as silence. Real-time safe: buffers are made at construction.
#include "engine/MicBridge.h"
#include "engine/TapRelay.h"
#include "engine/VoiceChain.h"

#include <atomic>
#include <vector>

namespace parlova {

class ChainOutput : public AudioSource {
public:
    ChainOutput(VoiceChain& chain, TapRelay& meter, const std::atomic<float>* volume = nullptr,
                MicBridge* monitor = nullptr);
    int32_t pull(BufferList& out, int frames) noexcept override;

private:
    VoiceChain& chain_;
    TapRelay& meter_;
    const std::atomic<float>* volume_;
    MicBridge* monitor_;
    std::vector<float> left_, right_;
};

}  // namespace parlova
