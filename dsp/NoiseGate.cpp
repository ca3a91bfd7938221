#include "dsp/NoiseGate.h"

#include <algorithm>
#include <cmath>

namespace parlova {

void NoiseGate::prepare(double sampleRate, const Timing& timing) {
    blockFrames_ = std::max(1, static_cast<int>(std::lround(timing.blockSeconds * sampleRate)));
    windowBlocks_ = std::max(1, timing.windowBlocks);
    openBlocks_ = std::clamp(timing.openBlocks, 1, windowBlocks_);
    holdBlocks_ = static_cast<int>(timing.holdSeconds / timing.blockSeconds);
    lookahead_ = static_cast<int>(std::lround(timing.lookaheadSeconds * sampleRate));
    floorGain_ = std::pow(10.0f, timing.floorDb / 20.0f);
    // Linear ramps over the whole range from the floor to full level.
    attackStep_ = (1.0f - floorGain_) / static_cast<float>(std::max(1.0, timing.attackSeconds * sampleRate));
    releaseStep_ = (1.0f - floorGain_) / static_cast<float>(std::max(1.0, timing.releaseSeconds * sampleRate));
    hysteresisDb_ = timing.hysteresisDb;
    aboveRoomDb_ = timing.aboveRoomDb;
    roomRisePerBlock_ = static_cast<float>(timing.roomRiseDbPerSecond * timing.blockSeconds);
    aboveOpen_.assign(static_cast<size_t>(windowBlocks_), 0);
    aboveClose_.assign(static_cast<size_t>(windowBlocks_), 0);
    aboveRoom_.assign(static_cast<size_t>(windowBlocks_), 0);
    rawWindow_.assign(static_cast<size_t>(windowBlocks_), 0.0f);
    reset();
}

void NoiseGate::reset() noexcept {
    std::fill(aboveOpen_.begin(), aboveOpen_.end(), 0);
    std::fill(aboveClose_.begin(), aboveClose_.end(), 0);
    std::fill(aboveRoom_.begin(), aboveRoom_.end(), 0);
    std::fill(rawWindow_.begin(), rawWindow_.end(), 0.0f);
    rawWindowSum_ = 0;
    windowPos_ = countOpen_ = countClose_ = countRoom_ = 0;
    blockEnergy_ = rawEnergy_ = 0;
    roomKnown_ = false;
    rawBlocks_ = 0;
    blockFill_ = 0;
    holdLeft_ = 0;
    open_ = false;
    gain_ = floorGain_;
}

void NoiseGate::endBlock() noexcept {
    const float threshold = thresholdDb_.load(std::memory_order_relaxed);
    const float level = blockEnergy_ / static_cast<float>(blockFrames_);
    const unsigned char overOpen = level > std::pow(10.0f, threshold / 10.0f);
    const unsigned char overClose = level > std::pow(10.0f, (threshold - hysteresisDb_) / 10.0f);
    // The room's floor is the level over the detector's window, not of single
    // blocks: a block of hum or of the low notes of a fan swings far below
    // the room's level within its cycle, and a floor that low would let the
    // noise itself count as lasting sound. It drops at once to a quieter
    // window and rises slowly, and only while the gate is closed, so speech
    // never becomes the floor.
    const auto slot = static_cast<size_t>(windowPos_);
    const float rawLevel = rawEnergy_ / static_cast<float>(blockFrames_);
    rawWindowSum_ += static_cast<double>(rawLevel) - rawWindow_[slot];
    rawWindow_[slot] = rawLevel;
    const float rawDb = 10.0f * std::log10(rawLevel + 1e-12f);
    if (++rawBlocks_ >= windowBlocks_) {
        const float windowDb = 10.0f * std::log10(static_cast<float>(std::max(0.0, rawWindowSum_)) / windowBlocks_ + 1e-12f);
        if (!roomKnown_ || windowDb < roomDb_) roomDb_ = windowDb;
        else if (!open_) roomDb_ = std::min(windowDb, roomDb_ + roomRisePerBlock_);
        roomKnown_ = true;
    }
    const unsigned char overRoom = roomKnown_ && rawDb > roomDb_ + aboveRoomDb_;
    countOpen_ += overOpen - aboveOpen_[slot];
    countClose_ += overClose - aboveClose_[slot];
    countRoom_ += overRoom - aboveRoom_[slot];
    aboveOpen_[slot] = overOpen;
    aboveClose_[slot] = overClose;
    aboveRoom_[slot] = overRoom;
    windowPos_ = windowPos_ + 1 == windowBlocks_ ? 0 : windowPos_ + 1;
    blockEnergy_ = rawEnergy_ = 0;
    blockFill_ = 0;

    const bool lasting = countRoom_ >= openBlocks_;
    if (lasting && countOpen_ >= openBlocks_) {
        open_ = true;
        holdLeft_ = holdBlocks_;
    } else if (open_ && lasting && countClose_ >= openBlocks_) {
        holdLeft_ = holdBlocks_;  // still going on, a little quieter
    } else if (open_ && --holdLeft_ <= 0) {
        open_ = false;
    }
}

void NoiseGate::analyse(const float* in, const float* raw, float* gains, int frames) noexcept {
    if (!raw) raw = in;
    for (int i = 0; i < frames; ++i) {
        blockEnergy_ += in[i] * in[i];
        rawEnergy_ += raw[i] * raw[i];
        if (++blockFill_ == blockFrames_) endBlock();
        gain_ = open_ ? std::min(1.0f, gain_ + attackStep_) : std::max(floorGain_, gain_ - releaseStep_);
        gains[i] = gain_;
    }
}

}  // namespace parlova
