// Writing: round trips through every export type at several rates and
// channel counts, read back with the reader.
#include "engine/AudioFile.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

using namespace parlova;
using namespace parlova::testaudio;
namespace fs = std::filesystem;

namespace {

// Writes `audio` in uneven blocks, as a renderer would.
void writeAll(AudioFileWriter& writer, const Audio& audio) {
    const int blocks[] = {256, 1000, 37, 4096, 1};
    int64_t done = 0;
    for (int i = 0; done < audio.frames(); ++i) {
        const int n = static_cast<int>(std::min<int64_t>(blocks[i % 5], audio.frames() - done));
        std::vector<const float*> p;
        for (const auto& ch : audio.channels) p.push_back(ch.data() + done);
        writer.write(p.data(), n);
        done += n;
    }
    writer.finish();
}

}  // namespace

TEST(AudioFileTypes, ByExtensionIgnoringCase) {
    EXPECT_EQ(audioFileTypeForPath("take.m4a"), AudioFileType::m4a);
    EXPECT_EQ(audioFileTypeForPath("dir.x/Take.M4A"), AudioFileType::m4a);
    EXPECT_EQ(audioFileTypeForPath("take.Wav"), AudioFileType::wav);
    EXPECT_EQ(audioFileTypeForPath("take.FLAC"), AudioFileType::flac);
    EXPECT_EQ(audioFileTypeForPath("take.mp3"), std::nullopt);
    EXPECT_EQ(audioFileTypeForPath("take"), std::nullopt);
    EXPECT_EQ(audioFileTypeForPath("m4a"), std::nullopt);
    EXPECT_STREQ(extensionForAudioFileType(AudioFileType::flac), ".flac");
}

struct RoundTripCase {
    AudioFileType type;
    int rate;
    int channels;
};

class AudioFileRoundTrip : public testing::TestWithParam<RoundTripCase> {};

TEST_P(AudioFileRoundTrip, KeepsFormatLengthLevelAndPitch) {
    const RoundTripCase c = GetParam();
    TempFolder dir;
    const std::string path = dir.file(std::string("take") + extensionForAudioFileType(c.type));
    Audio source = spread(tone(1000, c.rate, static_cast<size_t>(1.3 * c.rate), 0.5f), c.rate, c.channels);
    for (int ch = 1; ch < c.channels; ++ch)  // tell the channels apart by level
        for (auto& v : source.channels[static_cast<size_t>(ch)]) v *= 1.0f - 0.1f * static_cast<float>(ch);

    auto writer = AudioFileWriter::create(path, {static_cast<double>(c.rate), c.channels}, c.type);
    EXPECT_EQ(writer->fileSampleRate(), c.rate);
    writeAll(*writer, source);

    Audio back = readAudioFile(path);
    EXPECT_EQ(back.sampleRate, c.rate);
    ASSERT_EQ(back.channelCount(), c.channels);
    switch (c.type) {
    case AudioFileType::wav:
        EXPECT_EQ(back.channels, source.channels);  // 32-bit float is exact
        break;
    case AudioFileType::flac:
        ASSERT_EQ(back.frames(), source.frames());
        for (size_t ch = 0; ch < source.channels.size(); ++ch)
            for (size_t i = 0; i < source.channels[ch].size(); ++i)
                ASSERT_NEAR(back.channels[ch][i], source.channels[ch][i], 0.6 / 8388608.0);  // 24-bit steps
        break;
    case AudioFileType::m4a:
        // The encoder's priming and padding are marked in the file and dropped on reading.
        EXPECT_EQ(back.frames(), source.frames());
        break;
    }
    const size_t from = static_cast<size_t>(0.1 * c.rate), count = static_cast<size_t>(c.rate);
    for (size_t ch = 0; ch < source.channels.size(); ++ch) {
        const double db = 20 * std::log10(rms(back.channels[ch], from, count) / rms(source.channels[ch], from, count));
        EXPECT_NEAR(db, 0.0, 0.3) << "channel " << ch;
        EXPECT_NEAR(fundamental(back.channels[ch], c.rate, from, count), 1000.0, 0.5) << "channel " << ch;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Types, AudioFileRoundTrip,
    testing::Values(RoundTripCase{AudioFileType::wav, 48000, 2}, RoundTripCase{AudioFileType::wav, 22050, 1},
                    RoundTripCase{AudioFileType::wav, 96000, 8}, RoundTripCase{AudioFileType::flac, 48000, 2},
                    RoundTripCase{AudioFileType::flac, 44100, 1}, RoundTripCase{AudioFileType::flac, 16000, 6},
                    RoundTripCase{AudioFileType::m4a, 48000, 2}, RoundTripCase{AudioFileType::m4a, 44100, 2},
                    RoundTripCase{AudioFileType::m4a, 44100, 1}, RoundTripCase{AudioFileType::m4a, 22050, 1},
                    RoundTripCase{AudioFileType::m4a, 48000, 3},
                    RoundTripCase{AudioFileType::m4a, 44100, 6}),
    [](const testing::TestParamInfo<RoundTripCase>& info) {
        const char* t = info.param.type == AudioFileType::m4a ? "m4a" : info.param.type == AudioFileType::wav ? "wav" : "flac";
        return std::string(t) + "_" + std::to_string(info.param.rate) + "_" + std::to_string(info.param.channels) + "ch";
    });

TEST(AudioFileWriter, AacAtAnUnsupportedRateIsResampledToTheNextOne) {
    TempFolder dir;
    const std::string path = dir.file("odd.m4a");
    Audio source = spread(tone(1000, 37800, 37800), 37800, 2);
    auto writer = AudioFileWriter::create(path, {37800, 2});
    EXPECT_EQ(writer->fileSampleRate(), 44100);
    writeAll(*writer, source);
    Audio back = readAudioFile(path);
    EXPECT_EQ(back.sampleRate, 44100);
    EXPECT_NEAR(back.seconds(), 1.0, 0.03);
    EXPECT_NEAR(fundamental(back.channels[1], 44100, 4410, 30000), 1000.0, 0.5);
    EXPECT_NEAR(rms(back.channels[0], 4410, 30000), 0.5 / std::sqrt(2.0), 0.01);
}

TEST(AudioFileWriter, ReplacesAnExistingFileAndRemovesAnUnfinishedOne) {
    TempFolder dir;
    const std::string path = dir.file("take.wav");
    std::ofstream(path) << "an older export that is much longer than a header";
    {
        auto writer = AudioFileWriter::create(path, {8000, 1});
        writeAll(*writer, spread(tone(500, 8000, 4000), 8000));
    }
    EXPECT_EQ(readAudioFile(path).frames(), 4000);

    const std::string abandoned = dir.file("abandoned.m4a");
    {
        auto writer = AudioFileWriter::create(abandoned, {48000, 2});
        Audio a = spread(tone(500, 48000, 24000), 48000, 2);
        writer->write(a.pointers().data(), static_cast<int>(a.frames()));
        EXPECT_TRUE(fs::exists(abandoned));
    }
    EXPECT_FALSE(fs::exists(abandoned));
}
