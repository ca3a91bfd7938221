#pragma once
// In-place effect hosting GrainDSP. `amount` may be written from any thread at
// any time; the render thread reads it once per render call.
#include "dsp/GrainDSP.h"
#include "dsp/InPlaceEffectUnit.h"

#include <atomic>

namespace parlova {

class GrainAudioUnit : public InPlaceEffectUnit {
public:
    GrainAudioUnit() = default;

    std::atomic<float> amount{0.0f};

    GrainDSP& dsp() { return dsp_; }
    const GrainDSP& dsp() const { return dsp_; }

protected:
    void prepare(const AudioFormat& format, int maxFrames) override;
    void process(BufferList& buffers, int frames) noexcept override;

private:
    GrainDSP dsp_;
};

}  // namespace parlova
