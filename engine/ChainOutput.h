#pragma once
// What an output device pulls in live mode and playback: the voice stage's
// stereo, its first channel tapped for the level meter, scaled by the
// main-mixer volume, with board sounds mixed in after that (so they play
// whether or not the voice is let through), and optionally copied into a
// monitor bridge. A failed
// stage render plays as silence. Volume changes (mute while only recording,
// unmute for live) ramp over a few milliseconds so they never click.
// Real-time safe: buffers are made at construction.
#include "dsp/GainRamp.h"
#include "engine/MicBridge.h"
#include "engine/SoundMixer.h"
#include "engine/TapRelay.h"
#include "engine/VoiceStage.h"

#include <atomic>
#include <vector>

namespace parlova {

class ChainOutput : public AudioSource {
public:
    static constexpr double kVolumeRampSeconds = 0.005;

    ChainOutput(VoiceStage& stage, TapRelay& meter, double sampleRate, MicBridge* monitor = nullptr,
                SoundMixer* sounds = nullptr);
    int32_t pull(BufferList& out, int frames) noexcept override;

    // Any thread: the volume to ramp to.
    void setVolume(float volume) { target_.store(volume, std::memory_order_relaxed); }
    // Starts at `volume` without a ramp (before the output starts).
    void jumpTo(float volume) {
        target_.store(volume, std::memory_order_relaxed);
        volume_.jumpTo(volume);
    }

private:
    VoiceStage& stage_;
    TapRelay& meter_;
    MicBridge* monitor_;
    SoundMixer* sounds_;
    std::atomic<float> target_{1.0f};
    GainRamp volume_;  // audio thread only
    std::vector<float> left_, right_;
};

}  // namespace parlova
