#include "engine/SoundMixer.h"

#include <algorithm>
#include <cmath>

namespace parlova {

SoundMixer::SoundMixer(double sampleRate)
    : fadeFrames_(std::max(1, static_cast<int>(std::lround(kStopFadeSeconds * sampleRate)))),
      duckFrames_(std::max(1, static_cast<int>(std::lround(kDuckSeconds * sampleRate)))),
      unduckFrames_(std::max(1, static_cast<int>(std::lround(kUnduckSeconds * sampleRate)))),
      commands_(64) {
    duck_.prepare(sampleRate, kDuckSeconds);
    duck_.jumpTo(1.0f);
    retired_.reserve(kSlots * 4);
}

bool SoundMixer::play(std::shared_ptr<const SoundBuffer> sound, float gain, float duckGain) {
    collect();
    if (!sound || sound->frames() == 0) return true;
    if (commands_.writable() == 0) return false;
    // A free slot, else the one playing longest.
    int slot = 0;
    for (int i = 0; i < kSlots; ++i) {
        if (!held_[i].sound) {
            slot = i;
            break;
        }
        if (held_[i].startedAt < held_[slot].startedAt) slot = i;
    }
    const uint64_t number = ++posted_;
    Held& held = held_[slot];
    if (held.sound) retired_.push_back({number, std::move(held.sound)});
    held = {std::move(sound), nextGeneration_++, number};
    if (nextGeneration_ == 0) nextGeneration_ = 1;  // 0 is what `ended_` starts at
    const Command command{Command::Kind::play, slot, held.generation, held.sound.get(), gain,
                          std::clamp(duckGain, 0.0f, 1.0f)};
    commands_.write(&command, 1);
    return true;
}

void SoundMixer::stopAll() {
    if (!isPlaying()) return;
    const Command command{Command::Kind::stopAll, 0, 0, nullptr, 0, 1};
    if (commands_.write(&command, 1) == 1) ++posted_;
}

bool SoundMixer::collect() {
    const uint64_t consumed = consumed_.load(std::memory_order_acquire);
    std::erase_if(retired_, [consumed](const Retired& retired) { return retired.command <= consumed; });
    for (int i = 0; i < kSlots; ++i) {
        Held& held = held_[i];
        if (held.sound && ended_[i].load(std::memory_order_acquire) == held.generation) held.sound.reset();
    }
    return isPlaying();
}

bool SoundMixer::isPlaying() const {
    return std::any_of(held_.begin(), held_.end(), [](const Held& held) { return held.sound != nullptr; });
}

void SoundMixer::applyCommands() noexcept {
    Command command;
    while (commands_.read(&command, 1) == 1) {
        ++applied_;
        if (command.kind == Command::Kind::stopAll) {
            for (Voice& voice : voices_)
                if (voice.sound && voice.fadeLeft < 0) voice.fadeLeft = fadeFrames_;
            continue;
        }
        voices_[command.slot] = {command.sound, command.generation, 0, command.gain, command.duckGain, -1};
    }
    consumed_.store(applied_, std::memory_order_release);
}

void SoundMixer::end(Voice& voice, int slot) noexcept {
    ended_[slot].store(voice.generation, std::memory_order_release);
    voice.sound = nullptr;
}

void SoundMixer::mix(float* left, float* right, int frames) noexcept {
    applyCommands();
    float duck = 1.0f;
    for (const Voice& voice : voices_)
        if (voice.sound && voice.fadeLeft < 0) duck = std::min(duck, voice.duckGain);
    if (duck != duck_.target()) duck_.setTarget(duck, duck < duck_.current() ? duckFrames_ : unduckFrames_);
    float* voiceChannels[] = {left, right};
    duck_.apply(voiceChannels, 2, frames);

    for (int slot = 0; slot < kSlots; ++slot) {
        Voice& voice = voices_[slot];
        if (!voice.sound) continue;
        const SoundBuffer& sound = *voice.sound;
        int count = std::min(frames, sound.frames() - voice.position);
        if (voice.fadeLeft >= 0) count = std::min(count, voice.fadeLeft);
        const float* l = sound.left.data() + voice.position;
        const float* r = sound.right.data() + voice.position;
        if (voice.fadeLeft < 0) {
            for (int i = 0; i < count; ++i) {
                left[i] += l[i] * voice.gain;
                right[i] += r[i] * voice.gain;
            }
        } else {
            for (int i = 0; i < count; ++i) {
                const float gain = voice.gain * static_cast<float>(voice.fadeLeft - i) / static_cast<float>(fadeFrames_);
                left[i] += l[i] * gain;
                right[i] += r[i] * gain;
            }
            voice.fadeLeft -= count;
        }
        voice.position += count;
        if (voice.position >= sound.frames() || voice.fadeLeft == 0) end(voice, slot);
    }
}

}  // namespace parlova
