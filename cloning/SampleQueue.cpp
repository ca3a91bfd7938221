#include "cloning/SampleQueue.h"

#include <algorithm>
#include <cstring>

namespace parlova {

SampleQueue::SampleQueue(double seconds, double sampleRate)
    : sampleRate_(sampleRate),
      queue_(std::max<size_t>(1, size_t(seconds * sampleRate)), 0,
             CushionedRing::TrimRule{1, size_t(kBacklogSeconds * sampleRate), 1, 0}) {}

void SampleQueue::setCushionSeconds(double seconds) noexcept {
    queue_.setCushion(size_t(std::max(0.0, seconds) * sampleRate_));
}

void SampleQueue::read(float* mono, int frames, float gain) noexcept {
    const int n = queue_.read(mono, frames);
    if (gain != 1.0f)
        for (int i = 0; i < n; ++i) mono[i] *= gain;
}

void SampleQueue::read(BufferList& out, int frames, float gain) noexcept {
    if (out.count < 1 || !out.data[0]) return;
    read(out.data[0], frames, gain);
    for (int c = 1; c < out.count; ++c)
        if (out.data[c]) std::memcpy(out.data[c], out.data[0], size_t(frames) * sizeof(float));
}

}  // namespace parlova
