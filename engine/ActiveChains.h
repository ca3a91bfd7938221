#pragma once
// Which chains are current, so the modulator thread can drive them without
// touching the engine's main-thread state. The lock is held only to copy or
// replace the two references.
#include "engine/VoiceChain.h"

#include <functional>
#include <memory>
#include <mutex>

namespace parlova {

class ActiveChains {
public:
    // Both tell `changed` (set once, before use) after the swap.
    void setLive(std::shared_ptr<VoiceChain> chain);
    void setPlay(std::shared_ptr<VoiceChain> chain);
    std::shared_ptr<VoiceChain> live() const;
    std::shared_ptr<VoiceChain> play() const;

    // Modulates the live chain, then the playback chain, for time t; returns
    // whether either voice moves with time.
    bool modulate(double t);
    void setChanged(std::function<void()> changed) { changed_ = std::move(changed); }

private:
    mutable std::mutex lock_;
    std::shared_ptr<VoiceChain> live_;
    std::shared_ptr<VoiceChain> play_;
    std::function<void()> changed_;
};

}  // namespace parlova
