#pragma once
// Plays a clip through a voice chain on an output device. The output device's
// audio thread pulls the chain. `finished()` turns true once the whole clip
// (and the chain's delay) has been played out. Built, started, stopped and
// destroyed on a job thread; faults arrive on the audio thread.
#include "devices/AudioBackend.h"
#include "media/AudioFile.h"
#include "engine/TapRelay.h"
#include "engine/VoiceStage.h"

#include <atomic>
#include <functional>
#include <memory>

namespace parlova {

class PlaybackGraph {
public:
    using BlockHandler = std::function<void(const float* mono, int frames)>;

    // Throws VoiceEngineError.
    PlaybackGraph(AudioBackend& backend, std::unique_ptr<AudioFileReader> file, const DeviceEntry& output,
                  const Voice& voice, BlockHandler meterTap, const StreamFaults& faults);
    ~PlaybackGraph();

    void start();
    void stop();
    bool finished() const { return finished_.load(std::memory_order_acquire); }
    std::shared_ptr<VoiceChain> chain() const { return chain_; }

private:
    class Player;
    std::unique_ptr<AudioFileReader> file_;
    std::atomic<bool> finished_{false};
    std::unique_ptr<TapRelay> meterRelay_;
    std::unique_ptr<Player> player_;
    std::unique_ptr<AudioSource> converted_;
    std::shared_ptr<VoiceChain> chain_;
    std::unique_ptr<EffectVoiceStage> stage_;
    std::unique_ptr<AudioSource> renderer_;
    std::unique_ptr<AudioStream> output_;
};

}  // namespace parlova
