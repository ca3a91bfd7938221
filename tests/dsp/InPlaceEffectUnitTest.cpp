#include "dsp/InPlaceEffectUnit.h"

#include <gtest/gtest.h>

#include <vector>

using namespace parlova;

namespace {

// Fills every buffer with a ramp (1000 apart per channel) so tests see where the pulled audio landed.
struct RampSource : AudioSource {
    int32_t pull(BufferList& out, int frames) noexcept override {
        for (int c = 0; c < out.count; ++c)
            for (int i = 0; i < frames; ++i) out.data[c][i] = static_cast<float>(i + 1000 * c);
        return status::ok;
    }
};

struct DoublingUnit : InPlaceEffectUnit {
    int prepared = 0;
    void prepare(const AudioFormat&, int) override { ++prepared; }
    void process(BufferList& b, int frames) noexcept override {
        for (int c = 0; c < b.count; ++c)
            for (int i = 0; i < frames; ++i) b.data[c][i] *= 2.0f;
    }
};

}  // namespace

TEST(InPlaceEffectUnit, PullsIntoOutputAndProcessesInPlace) {
    RampSource source;
    DoublingUnit unit;
    unit.setInput(&source);
    unit.allocateRenderResources();
    EXPECT_EQ(unit.prepared, 1);
    std::vector<float> own(64, -1.0f);
    BufferList list;
    list.count = 2;
    list.data[0] = own.data();  // has memory: must be kept
    list.data[1] = nullptr;     // no memory: gets the unit's pull buffer
    ASSERT_EQ(unit.pull(list, 64), status::ok);
    EXPECT_EQ(list.data[0], own.data());
    ASSERT_NE(list.data[1], nullptr);
    EXPECT_FLOAT_EQ(own[10], 20.0f);
    EXPECT_FLOAT_EQ(list.data[1][10], 2020.0f);
}

