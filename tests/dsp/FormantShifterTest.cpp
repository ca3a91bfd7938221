// Auto pitch in the shifter: on a real signal it lands on its target while the
// tracker hears the input; it is bounded, and gives way to the voice's fixed
// shift until a pitch is known. (Fixed pitch and formant shifts are measured
// on real speech in ShifterTimingTest.)
#include "dsp/FormantShifterUnit.h"
#include "support/MemorySource.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

using namespace parlova;
using parlova::testaudio::cents;

TEST(FormantShifter, AutoPitchLandsOnTheTarget) {
    constexpr double kRate = 48000;
    FormantShifterUnit unit;
    unit.pitchSemitones = -4.0f;  // dropped while a pitch is known
    unit.targetHz = 108;
    unit.setFormat({kRate, 2});
    unit.allocateRenderResources();
    testaudio::Channels in(2, static_cast<size_t>(3.0 * kRate));
    in[0] = in[1] = testaudio::tone(216, kRate, in[0].size(), 0.3f, testaudio::Wave::saw);
    const auto out = testaudio::renderThrough(unit, in, 256)[0];
    EXPECT_NEAR(unit.detectedHz.load(), 216.0f, 3.0f);  // the tracker hears the input, not the output
    const double hz = testaudio::fundamental(out, kRate, static_cast<size_t>(2.0 * kRate), static_cast<size_t>(0.8 * kRate));
    EXPECT_NEAR(cents(hz, 108), 0.0, 30.0) << hz;
}

TEST(FormantShifter, AutoPitchIsBoundedAndWaitsForAPitch) {
    // 320 Hz asked of a 100 Hz talker: the shift stops at its limit, the vibrato rides on top.
    EXPECT_FLOAT_EQ(FormantShifterUnit::shiftFor(0, 0.3f, 0, 320, 100).pitch, FormantShifterUnit::kAutoLimit + 0.3f);
    // Auto pitch off, or nothing detected yet: the voice's own shift.
    for (auto [target, detected] : {std::pair{0.0f, 150.0f}, {-10.0f, 150.0f}, {108.0f, 0.0f}}) {
        const auto s = FormantShifterUnit::shiftFor(6.5f, 0.2f, 3.5f, target, detected);
        EXPECT_FLOAT_EQ(s.pitch, 6.5f) << target << " " << detected;
        EXPECT_FLOAT_EQ(s.formant, 3.5f);
    }
}
