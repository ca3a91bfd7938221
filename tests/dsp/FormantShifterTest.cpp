// The shifter measured on real signals: pitch moved by the asked cents,
// formants by the asked semitones, auto pitch landing on its target.
#include "dsp/FormantShifterUnit.h"
#include "support/MemorySource.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

using namespace parlova;
using parlova::testaudio::cents;

namespace {

constexpr double kRate = 48000;

// Runs `input` (mono, fed to both channels) through a prepared unit in 256-frame blocks.
std::vector<float> shift(FormantShifterUnit& unit, const std::vector<float>& input) {
    testaudio::MemorySource source({input});
    unit.setInput(&source);
    unit.setFormat({kRate, 2});
    unit.allocateRenderResources();
    std::vector<float> out(input.size()), right(256);
    for (size_t at = 0; at < input.size(); at += 256) {
        const int frames = static_cast<int>(std::min<size_t>(256, input.size() - at));
        BufferList list;
        list.count = 2;
        list.data[0] = out.data() + at;
        list.data[1] = right.data();
        EXPECT_EQ(unit.pull(list, frames), status::ok);
    }
    return out;
}

}  // namespace

TEST(FormantShifter, AutoPitchReplacesTheFixedShiftWithinItsLimits) {
    // A 216 Hz talker with a 108 Hz target: one octave down, formants follow a quarter.
    auto s = FormantShifterUnit::shiftFor(-4.0f, 0.0f, -0.5f, 108, 216);
    EXPECT_FLOAT_EQ(s.pitch, -12.0f);
    EXPECT_FLOAT_EQ(s.formant, -3.5f);
    s = FormantShifterUnit::shiftFor(0, 0.3f, 0, 320, 100);  // +20.1 asked, +14 given, vibrato on top
    EXPECT_FLOAT_EQ(s.pitch, 14.3f);
    EXPECT_FLOAT_EQ(s.formant, 3.5f);
    s = FormantShifterUnit::shiftFor(6.5f, 0.2f, 3.5f, 0, 150);  // auto off
    EXPECT_FLOAT_EQ(s.pitch, 6.5f);
    s = FormantShifterUnit::shiftFor(6.5f, 0.2f, 3.5f, -10, 150);
    EXPECT_FLOAT_EQ(s.pitch, 6.5f);
    s = FormantShifterUnit::shiftFor(-4.0f, 0.0f, -0.5f, 108, 0);  // nothing detected yet
    EXPECT_FLOAT_EQ(s.pitch, -4.0f);
    EXPECT_FLOAT_EQ(s.formant, -0.5f);
}

TEST(FormantShifter, MovesASawtoothByTheAskedCents) {
    FormantShifterUnit unit;
    unit.pitchSemitones = 6.5f;
    const auto out = shift(unit, testaudio::tone(150, kRate, static_cast<size_t>(3.0 * kRate), 0.3f, testaudio::Wave::saw));
    const double hz = testaudio::fundamental(out, kRate, static_cast<size_t>(1.5 * kRate), static_cast<size_t>(kRate));
    EXPECT_NEAR(cents(hz, 218.35), 0.0, 3.0) << hz << " Hz";
    EXPECT_NEAR(unit.detectedHz.load(), 150.0f, 2.0f);  // the tracker hears the input, not the output
}

TEST(FormantShifter, MovesFormantsByTheAskedSemitonesAndKeepsThePitch) {
    const auto input = testaudio::tone(110, kRate, static_cast<size_t>(3.0 * kRate), 0.3f, testaudio::Wave::vowel);
    FormantShifterUnit unit;
    unit.formantSemitones = 3.5f;
    const auto out = shift(unit, input);
    const size_t from = static_cast<size_t>(1.0 * kRate), count = static_cast<size_t>(1.8 * kRate);
    EXPECT_NEAR(testaudio::envelopeShiftSemitones(input, out, kRate, from, count), 3.5, 0.3);
    EXPECT_NEAR(cents(testaudio::fundamental(out, kRate, from, count), 110), 0.0, 5.0);
}

TEST(FormantShifter, AutoPitchLandsOnTheTarget) {
    FormantShifterUnit unit;
    unit.pitchSemitones = -4.0f;  // dropped while a pitch is known
    unit.targetHz = 108;
    const auto out = shift(unit, testaudio::tone(216, kRate, static_cast<size_t>(3.0 * kRate), 0.3f, testaudio::Wave::saw));
    EXPECT_NEAR(unit.detectedHz.load(), 216.0f, 3.0f);
    const double hz = testaudio::fundamental(out, kRate, static_cast<size_t>(2.0 * kRate), static_cast<size_t>(0.8 * kRate));
    EXPECT_NEAR(cents(hz, 108), 0.0, 30.0) << hz;
}
