#include "engine/LevelMonitor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace parlova;

TEST(LevelMonitor, MeasuresTheLevelAndPeakInDecibelsFullScale) {
    std::vector<float> silence(1024, 0.0f), square(1024), sine(4800);
    for (size_t i = 0; i < square.size(); ++i) square[i] = (i / 32) % 2 ? 0.01f : -0.01f;  // -40 dBFS
    for (size_t i = 0; i < sine.size(); ++i) sine[i] = 0.5f * float(std::sin(2 * M_PI * 440 * double(i) / 48000));
    const auto quiet = LevelMonitor::measure(square.data(), 1024);
    EXPECT_NEAR(quiet.rmsDb, -40.0f, 0.01f);
    EXPECT_NEAR(quiet.peakDb, -40.0f, 0.01f);
    // A sine's RMS sits 3 dB under its peak.
    const auto tone = LevelMonitor::measure(sine.data(), 4800);
    EXPECT_NEAR(tone.peakDb, -6.02f, 0.01f);
    EXPECT_NEAR(tone.rmsDb, -9.03f, 0.02f);
    EXPECT_EQ(LevelMonitor::measure(silence.data(), 1024).rmsDb, LevelMonitor::kFloorDb);
    EXPECT_EQ(LevelMonitor::measure(nullptr, 1024).peakDb, LevelMonitor::kFloorDb);
}

