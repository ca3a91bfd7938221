#include "engine/ActiveChains.h"

namespace parlova {

void ActiveChains::setLive(std::shared_ptr<VoiceChain> chain) {
    std::lock_guard guard(lock_);
    live_.swap(chain);
}  // the previous chain, if this was its last owner, is released outside the lock

void ActiveChains::setPlay(std::shared_ptr<VoiceChain> chain) {
    std::lock_guard guard(lock_);
    play_.swap(chain);
}

std::shared_ptr<VoiceChain> ActiveChains::live() const {
    std::lock_guard guard(lock_);
    return live_;
}

std::shared_ptr<VoiceChain> ActiveChains::play() const {
    std::lock_guard guard(lock_);
    return play_;
}

void ActiveChains::modulate(double t) {
    std::shared_ptr<VoiceChain> live, play;
    {
        std::lock_guard guard(lock_);
        live = live_;
        play = play_;
    }
    if (live) live->modulate(t);
    if (play) play->modulate(t);
}

}  // namespace parlova
