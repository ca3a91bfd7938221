#include "dsp/Reverb.h"

#include "support/MemorySource.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace parlova;
namespace ts = parlova::testaudio;

namespace {

// At the chain's rate, the only one it runs at.
constexpr double kRate = 48000.0;

std::unique_ptr<Reverb> preparedReverb(float mix = 100.0f) {
    auto reverb = std::make_unique<Reverb>();
    reverb->setFormat({kRate, 2});
    reverb->setWetDryMix(mix);
    reverb->allocateRenderResources();
    return reverb;
}

// Impulse response of the left output at 100% wet.
std::vector<float> impulseResponse() {
    auto reverb = preparedReverb();
    ts::Channels in(2, static_cast<size_t>(kRate));
    in[0][0] = in[1][0] = 1.0f;
    return ts::renderThrough(*reverb, in)[0];
}

// Decay time to -60 dB, extrapolated from the -5..-25 dB stretch of the
// backward-integrated energy curve.
double decaySeconds(const std::vector<float>& response, double rate) {
    std::vector<double> energy(response.size() + 1, 0.0);
    for (size_t i = response.size(); i-- > 0;) energy[i] = energy[i + 1] + double(response[i]) * response[i];
    size_t at5 = 0, at25 = 0;
    for (size_t i = 0; i < response.size(); ++i) {
        const double db = 10.0 * std::log10(energy[i] / energy[0] + 1e-30);
        if (at5 == 0 && db <= -5.0) at5 = i;
        if (at25 == 0 && db <= -25.0) at25 = i;
    }
    return 3.0 * static_cast<double>(at25 - at5) / rate;
}

}  // namespace

TEST(Reverb, ZeroMixIsBitIdenticalEvenAfterAWetStretch) {
    auto reverb = preparedReverb(0.0f);
    ts::Channels in(2, 48000);
    in[0] = ts::whiteNoise(48000, 0.7f, 3);
    in[1] = ts::tone(500, 48000, 48000);
    auto out = ts::renderThrough(*reverb, in);
    for (size_t c = 0; c < 2; ++c)
        EXPECT_EQ(std::memcmp(out[c].data(), in[c].data(), 48000 * sizeof(float)), 0);

    // Back to dry after a wet stretch: identical again once the mix has glided to 0.
    reverb->setWetDryMix(40.0f);
    ts::renderThrough(*reverb, in);
    reverb->setWetDryMix(0.0f);
    out = ts::renderThrough(*reverb, in);
    EXPECT_EQ(std::memcmp(out[0].data() + 512, in[0].data() + 512, (48000 - 512) * sizeof(float)), 0);
}

TEST(Reverb, SmallRoomTailDecaysInUnderHalfASecond) {
    const auto response = impulseResponse();
    const double decay = decaySeconds(response, kRate);
    EXPECT_GT(decay, 0.25);
    EXPECT_LT(decay, 0.6);
    // The room answers within a few milliseconds and is silent a second later.
    EXPECT_GT(ts::peak(std::vector<float>(response.begin(), response.begin() + 240)), 0.01);
    const double late = ts::rms(response, 38400, 9600), early = ts::rms(response, 0, 4800);
    EXPECT_LT(ts::toDb(late / early), -50.0);
}

TEST(Reverb, SidesAreDecorrelatedAndTheWetLevelMatchesTheDry) {
    auto reverb = preparedReverb();
    ts::Channels in(2, 96000);
    in[0] = ts::whiteNoise(96000, 0.5f, 5);
    in[1] = in[0];  // identical sides in
    auto out = ts::renderThrough(*reverb, in);
    double lr = 0, ll = 0, rr = 0;
    for (size_t i = 48000; i < 96000; ++i) {
        lr += double(out[0][i]) * out[1][i];
        ll += double(out[0][i]) * out[0][i];
        rr += double(out[1][i]) * out[1][i];
    }
    EXPECT_LT(std::fabs(lr / std::sqrt(ll * rr)), 0.3);
    const double level = ts::toDb(ts::rms(out[0], 48000) / ts::rms(in[0], 48000));
    EXPECT_GT(level, -6.0);
    EXPECT_LT(level, 3.0);
}
