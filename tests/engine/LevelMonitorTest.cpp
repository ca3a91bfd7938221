#include "engine/LevelMonitor.h"

#include <gtest/gtest.h>

#include <vector>

using namespace parlova;
using namespace std::chrono_literals;

TEST(LevelMonitor, LevelIsLinearInDecibelsBetweenMinus50AndZero) {
    std::vector<float> silence(1024, 0.0f), square(1024), quiet(1024);
    for (size_t i = 0; i < square.size(); ++i) {
        square[i] = (i / 32) % 2 ? 1.0f : -1.0f;
        quiet[i] = (i / 32) % 2 ? 0.01f : -0.01f;  // -40 dBFS
    }
    EXPECT_EQ(LevelMonitor::rms(silence.data(), 1024), 0.0f);
    EXPECT_FLOAT_EQ(LevelMonitor::rms(square.data(), 1024), 1.0f);
    EXPECT_NEAR(LevelMonitor::rms(quiet.data(), 1024), 0.2f, 1e-5);
    EXPECT_EQ(LevelMonitor::rms(nullptr, 1024), 0.0f);
    EXPECT_EQ(LevelMonitor::rms(square.data(), 0), 0.0f);
}

TEST(LevelMonitor, RisesAtOnceFallsSlowlyAndPublishesAtMost20TimesASecond) {
    LevelMonitor meter;
    int published = 0;
    QObject::connect(&meter, &LevelMonitor::valueChanged, [&](float) { ++published; });
    auto t = LevelMonitor::Clock::now();
    meter.update(0.8f, t);
    EXPECT_FLOAT_EQ(meter.smoothed(), 0.8f);
    EXPECT_FLOAT_EQ(meter.value(), 0.8f);
    meter.update(0.0f, t + 10ms);  // falls 15% of the way, too soon to publish
    EXPECT_FLOAT_EQ(meter.smoothed(), 0.68f);
    EXPECT_FLOAT_EQ(meter.value(), 0.8f);
    meter.update(0.0f, t + 60ms);
    EXPECT_FLOAT_EQ(meter.value(), meter.smoothed());
    EXPECT_EQ(published, 2);
    const float held = meter.value();
    meter.update(held + 0.004f, t + 200ms);  // a change of 0.005 or less is not published
    EXPECT_EQ(meter.value(), held);
    meter.reset();
    EXPECT_EQ(meter.value(), 0.0f);
    EXPECT_EQ(meter.smoothed(), 0.0f);
}

TEST(LevelMonitor, DetectedPitchPublishesWholeHertzMovesAndSnapsToAndFromNone) {
    EXPECT_FALSE(shouldPublishPitch(200.0f, 200.6f));
    EXPECT_TRUE(shouldPublishPitch(200.0f, 201.0f));
    EXPECT_TRUE(shouldPublishPitch(200.0f, 0.0f));
    EXPECT_TRUE(shouldPublishPitch(0.0f, 0.5f));
    EXPECT_FALSE(shouldPublishPitch(0.0f, 0.0f));
}
