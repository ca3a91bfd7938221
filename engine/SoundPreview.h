#pragma once
// Board sounds and voice previews without live mode: an output stream on the
// output device that plays nothing but a sound mixer. Opened, started,
// stopped and destroyed on the backend's job thread; the mixer's owner
// thread is the main thread.
#include "devices/AudioBackend.h"
#include "engine/SoundMixer.h"

#include <memory>

namespace parlova {

class SoundPreview {
public:
    // Throws VoiceEngineError.
    SoundPreview(AudioBackend& backend, const DeviceEntry& output, const StreamFaults& faults);
    ~SoundPreview();

    void start();
    SoundMixer& sounds() { return *sounds_; }

private:
    class Source;
    std::unique_ptr<SoundMixer> sounds_;
    std::unique_ptr<Source> source_;
    std::unique_ptr<AudioStream> output_;
};

}  // namespace parlova
