// One export of real speech through the whole chain, compared with stored
// figures: the level every 20 ms and the pitch every 50 ms. The tolerances let
// through the last-bit differences of another compiler or CPU but not a change
// of sound. PARLOVA_REGENERATE_GOLDEN=1 rewrites the stored figures.
#include "support/RealSpeech.h"
#include "engine/OfflineRenderer.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <sstream>

using namespace parlova;

namespace {

const std::string kGoldenPath = PARLOVA_SOURCE_DIR "/tests/data/old-lady-golden.txt";
constexpr double kLevelToleranceDb = 1.0, kQuietDb = -60.0;
constexpr double kPitchToleranceCents = 50.0, kVoicedWithinDb = 25.0;
constexpr int kPitchMissesAllowed = 3;

struct Figures {
    std::vector<double> levelDb;  // per 20 ms
    std::vector<double> pitchHz;  // per 50 ms, 0 where the frame is too quiet to be voiced
};

Figures measure(const std::vector<float>& samples, double rate) {
    Figures f;
    const auto level = static_cast<size_t>(0.02 * rate), hop = static_cast<size_t>(0.05 * rate);
    for (size_t at = 0; at + level <= samples.size(); at += level)
        f.levelDb.push_back(testaudio::toDb(testaudio::rms(samples, at, level)));
    std::vector<double> pitchDb;
    const size_t lookAhead = static_cast<size_t>(rate / 60) + 2;  // the pitch search reads past its frame
    for (size_t at = 0; at + hop + lookAhead <= samples.size(); at += hop) {
        pitchDb.push_back(testaudio::toDb(testaudio::rms(samples, at, hop)));
        f.pitchHz.push_back(testaudio::fundamental(samples, rate, at, hop));
    }
    const double loudest = *std::max_element(pitchDb.begin(), pitchDb.end());
    for (size_t i = 0; i < pitchDb.size(); ++i)
        if (pitchDb[i] < loudest - kVoicedWithinDb) f.pitchHz[i] = 0;
    return f;
}

void write(const std::string& path, const Figures& f) {
    std::ofstream out(path);
    out << "# Export of pocketsphinx-testdata cards/002.wav (16 kHz mono) through \"Old Lady\".\n"
           "# Rewrite with PARLOVA_REGENERATE_GOLDEN=1.\n";
    auto list = [&](const char* name, const std::vector<double>& values) {
        out << name << ' ' << values.size() << '\n';
        for (size_t i = 0; i < values.size(); ++i)
            out << std::fixed << std::setprecision(2) << values[i] << (i % 10 == 9 ? '\n' : ' ');
        out << '\n';
    };
    list("level_db_per_20ms", f.levelDb);
    list("pitch_hz_per_50ms", f.pitchHz);
}

bool read(const std::string& path, Figures* f) {
    std::ifstream in(path);
    std::string line, content;
    while (std::getline(in, line))
        if (!line.empty() && line[0] != '#') content += line + '\n';
    std::istringstream words(content);
    for (auto* values : {&f->levelDb, &f->pitchHz}) {
        std::string name;
        size_t count = 0;
        if (!(words >> name >> count)) return false;
        values->resize(count);
        for (double& v : *values)
            if (!(words >> v)) return false;
    }
    return true;
}

}  // namespace

TEST(GoldenRender, OldLadyOnRealSpeechMatchesTheStoredFigures) {
    const std::string speech = testaudio::speechRecording("cards/002.wav");
    if (speech.empty()) GTEST_SKIP() << "pocketsphinx-testdata is not installed";
    testaudio::TempFolder dir;
    renderOffline(speech, dir.file("out.wav"), Voice::builtIns()[0]);
    const testaudio::Audio rendered = testaudio::readAudioFile(dir.file("out.wav"));
    const Figures actual = measure(rendered.channels[0], rendered.sampleRate);

    const char* regenerate = std::getenv("PARLOVA_REGENERATE_GOLDEN");
    if (regenerate != nullptr && std::string(regenerate) == "1") {
        write(kGoldenPath, actual);
        GTEST_SKIP() << "rewrote " << kGoldenPath;
    }
    Figures golden;
    ASSERT_TRUE(read(kGoldenPath, &golden)) << "no stored figures in " << kGoldenPath;

    bool same = golden.levelDb.size() == actual.levelDb.size() && golden.pitchHz.size() == actual.pitchHz.size();
    EXPECT_TRUE(same) << "the render's length changed";
    for (size_t i = 0; same && i < golden.levelDb.size(); ++i) {
        const double expected = golden.levelDb[i], got = actual.levelDb[i];
        const bool ok = expected < kQuietDb ? got < kQuietDb + 10 : std::fabs(got - expected) <= kLevelToleranceDb;
        EXPECT_TRUE(ok) << "level at " << 20 * i << " ms: " << got << " dB, stored " << expected;
        same = same && ok;
    }
    int misses = 0;
    for (size_t i = 0; same && i < golden.pitchHz.size(); ++i) {
        const double expected = golden.pitchHz[i], got = actual.pitchHz[i];
        const bool voiced = expected > 0, nowVoiced = got > 0;
        if (voiced != nowVoiced || (voiced && std::fabs(testaudio::cents(got, expected)) > kPitchToleranceCents))
            ++misses;
    }
    EXPECT_LE(misses, kPitchMissesAllowed) << "frames whose pitch moved by more than " << kPitchToleranceCents
                                           << " cents or lost or gained their voicing";
    same = same && misses <= kPitchMissesAllowed;
    if (!same) {
        write(kGoldenPath + ".actual", actual);
        ADD_FAILURE() << "the figures of this render are in " << kGoldenPath << ".actual";
    }
}
