#include "dsp/GrainAudioUnit.h"

namespace parlova {

void GrainAudioUnit::prepare(const AudioFormat& format, int /*maxFrames*/) {
    dsp_.prepare(format.sampleRate);
}

void GrainAudioUnit::process(BufferList& buffers, int frames) noexcept {
    dsp_.process(buffers, buffers, frames, amount.load(std::memory_order_relaxed));
}

}  // namespace parlova
