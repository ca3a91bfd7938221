#pragma once
// Mixes board sounds into an output on its audio thread: the voice under
// them is lowered by the deepest ducking of the sounds playing (ramped, so it
// never clicks), then every sound is added at its own gain. Up to kSlots
// sounds play side by side; another one takes the place of the oldest.
//
// Threads: play(), stopAll(), collect() and isPlaying() belong to one owner
// thread (the main thread); mix() to the output's audio thread. Commands go
// to the audio thread through an SPSC ring. The owner keeps every sound alive
// until the audio thread can no longer read it, so nothing is freed on the
// audio thread:
// - a sound that reaches its end (or finishes fading after a stop) is marked
//   in `ended_` with its play's generation (release; the owner loads with
//   acquire) and released by the owner's next collect();
// - a sound that another play replaces in its slot is retired with that
//   play's command number and released once `consumed_` (the count of
//   commands the audio thread has applied, stored with release after
//   applying them) has reached it.
#include "dsp/GainRamp.h"
#include "dsp/SpscRing.h"
#include "engine/SoundBuffer.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace parlova {

class SoundMixer {
public:
    static constexpr int kSlots = 8;
    static constexpr double kStopFadeSeconds = 0.01;
    static constexpr double kDuckSeconds = 0.03;     // how fast the voice goes down
    static constexpr double kUnduckSeconds = 0.25;   // and comes back

    explicit SoundMixer(double sampleRate);
    SoundMixer(const SoundMixer&) = delete;
    SoundMixer& operator=(const SoundMixer&) = delete;

    // Owner thread. Starts `sound` at `gain`, lowering the voice to
    // `duckGain` (1: not at all) while it plays. False only when the command
    // queue is full (the audio thread is not running).
    bool play(std::shared_ptr<const SoundBuffer> sound, float gain, float duckGain);
    // Fades every sound out.
    void stopAll();
    // Releases what the audio thread is done with; returns isPlaying().
    bool collect();
    // Whether a sound still plays (as far as the last collect() knows).
    bool isPlaying() const;

    // Audio thread: ducks `left`/`right` (the voice) and adds the sounds.
    void mix(float* left, float* right, int frames) noexcept;

private:
    struct Command {
        enum class Kind : uint8_t { play, stopAll } kind;
        int slot;
        uint32_t generation;
        const SoundBuffer* sound;
        float gain;
        float duckGain;
    };
    struct Voice {  // audio thread only
        const SoundBuffer* sound = nullptr;
        uint32_t generation = 0;
        int position = 0;
        float gain = 1;
        float duckGain = 1;
        int fadeLeft = -1;  // frames of the stop fade left; -1: not stopping
    };
    struct Held {  // owner thread only
        std::shared_ptr<const SoundBuffer> sound;
        uint32_t generation = 0;
        uint64_t startedAt = 0;  // its play's command number
    };
    struct Retired {
        uint64_t command;
        std::shared_ptr<const SoundBuffer> sound;
    };

    void applyCommands() noexcept;
    void end(Voice& voice, int slot) noexcept;

    const int fadeFrames_;
    const int duckFrames_, unduckFrames_;
    SpscRing<Command> commands_;
    std::atomic<uint64_t> consumed_{0};
    std::array<std::atomic<uint32_t>, kSlots> ended_{};

    // Owner thread.
    std::array<Held, kSlots> held_{};
    std::vector<Retired> retired_;
    uint64_t posted_ = 0;
    uint32_t nextGeneration_ = 1;

    // Audio thread.
    std::array<Voice, kSlots> voices_{};
    uint64_t applied_ = 0;
    GainRamp duck_;
};

}  // namespace parlova
