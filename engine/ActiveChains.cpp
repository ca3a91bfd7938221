#include "engine/ActiveChains.h"

namespace parlova {

void ActiveChains::setLive(std::shared_ptr<VoiceChain> chain) {
    {
        std::lock_guard guard(lock_);
        live_.swap(chain);
    }
    if (changed_) changed_();
}  // the previous chain, if this was its last owner, is released outside the lock

void ActiveChains::setPlay(std::shared_ptr<VoiceChain> chain) {
    {
        std::lock_guard guard(lock_);
        play_.swap(chain);
    }
    if (changed_) changed_();
}

std::shared_ptr<VoiceChain> ActiveChains::live() const {
    std::lock_guard guard(lock_);
    return live_;
}

std::shared_ptr<VoiceChain> ActiveChains::play() const {
    std::lock_guard guard(lock_);
    return play_;
}

bool ActiveChains::modulate(double t) {
    std::shared_ptr<VoiceChain> live, play;
    {
        std::lock_guard guard(lock_);
        live = live_;
        play = play_;
    }
    bool moving = false;
    if (live) moving = live->modulate(t) || moving;
    if (play) moving = play->modulate(t) || moving;
    return moving;
}

}  // namespace parlova
