// Reading: our own WAVs bit for bit, files made by external encoders at
// several rates and channel counts.
#include "engine/AudioFile.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace parlova;
using namespace parlova::testaudio;

namespace {

// Reads a whole file in blocks of `block` frames.
Audio readInBlocks(AudioFileReader& reader, int block) {
    Audio a;
    a.sampleRate = reader.format().sampleRate;
    a.channels.assign(static_cast<size_t>(reader.format().channels), {});
    std::vector<std::vector<float>> buf(a.channels.size(), std::vector<float>(static_cast<size_t>(block)));
    std::vector<float*> ptrs;
    for (auto& b : buf) ptrs.push_back(b.data());
    for (int n; (n = reader.read(ptrs.data(), block)) > 0;)
        for (size_t c = 0; c < buf.size(); ++c) a.channels[c].insert(a.channels[c].end(), buf[c].begin(), buf[c].begin() + n);
    return a;
}

}  // namespace

TEST(AudioFileReader, ReadsFloatWavBitExactInAnyBlockSizeAndRewinds) {
    TempFolder dir;
    Audio source = noise(0.7, 44100, 2, 0.8f, 7);
    ASSERT_TRUE(writeWav(dir.file("noise.wav"), source));

    auto reader = AudioFileReader::open(dir.file("noise.wav"));
    EXPECT_EQ(reader->format(), (AudioFormat{44100.0, 2}));
    EXPECT_EQ(reader->frameLength(), source.frames());

    Audio first = readInBlocks(*reader, 333);
    EXPECT_EQ(first.channels, source.channels);
    float scratch[4];
    float* none[2] = {scratch, scratch + 2};
    EXPECT_EQ(reader->read(none, 2), 0);
    EXPECT_EQ(reader->framesLeft(), 0);

    reader->rewind();
    Audio second = readInBlocks(*reader, 4096);
    EXPECT_EQ(second.channels, source.channels);
}

TEST(AudioFileReader, Reads16BitWavWithinOneStep) {
    TempFolder dir;
    Audio source = spread(tone(440, 8000, 2000, 0.9f), 8000);
    ASSERT_TRUE(writeWav(dir.file("tone16.wav"), source, 16));
    Audio back = readAudioFile(dir.file("tone16.wav"));
    ASSERT_EQ(back.frames(), source.frames());
    EXPECT_EQ(back.sampleRate, 8000);
    for (size_t i = 0; i < source.channels[0].size(); ++i)
        ASSERT_NEAR(back.channels[0][i], source.channels[0][i], 1.0 / 32768.0 + 1e-7) << "frame " << i;
}

// A file made by an external tool: encoder, container, rate, channels.
struct ExternalCase {
    std::string label;       // test name suffix
    std::string extension;   // with dot
    std::string command;     // shell command; {in} and {out} are replaced
    int rate;
    int channels;
    int decodedRate;         // what the decoder must report
    int lengthTolerance;     // frames the decoded length may differ from the source
};

class ExternalFileTest : public testing::TestWithParam<ExternalCase> {};

TEST_P(ExternalFileTest, DecodesToneWithRateChannelsLengthLevelAndPitch) {
    const ExternalCase& c = GetParam();
    const std::string tool = c.command.substr(0, c.command.find(' '));
    if (!haveTool(tool)) GTEST_SKIP() << tool << " isn't installed";

    TempFolder dir;
    const double seconds = 1.5;
    Audio source = spread(tone(1000, c.rate, static_cast<size_t>(seconds * c.rate), 0.5f), c.rate, c.channels);
    const std::string in = dir.file("source.wav");
    const std::string out = dir.file("made" + c.extension);
    ASSERT_TRUE(writeWav(in, source, 16));
    std::string cmd = c.command;
    cmd.replace(cmd.find("{in}"), 4, shellQuote(in));
    cmd.replace(cmd.find("{out}"), 5, shellQuote(out));
    ASSERT_EQ(runQuiet(cmd), 0) << cmd;

    auto reader = AudioFileReader::open(out);
    EXPECT_EQ(reader->format().sampleRate, c.decodedRate);
    EXPECT_EQ(reader->format().channels, c.channels);
    const double expectedFrames = seconds * c.decodedRate;
    EXPECT_NEAR(static_cast<double>(reader->frameLength()), expectedFrames, c.lengthTolerance);

    Audio back = readInBlocks(*reader, 1024);
    ASSERT_EQ(back.frames(), reader->frameLength());
    const size_t from = static_cast<size_t>(0.25 * c.decodedRate), count = static_cast<size_t>(c.decodedRate);
    for (const auto& ch : back.channels) {
        EXPECT_NEAR(20 * std::log10(rms(ch, from, count) / (0.5 / std::sqrt(2.0))), 0.0, 0.5);
        EXPECT_NEAR(fundamental(ch, c.decodedRate, from, count), 1000.0, 1.0);
    }
}

std::vector<ExternalCase> externalCases() {
    std::vector<ExternalCase> cases;
    const char* ff = "ffmpeg -nostdin -y -i {in} ";
    for (int rate : {22050, 44100, 48000})
        for (int ch : {1, 2}) {
            const std::string tag = std::to_string(rate) + (ch == 1 ? "_mono" : "_stereo");
            cases.push_back({"mp3_" + tag, ".mp3", std::string(ff) + "-c:a libmp3lame -b:a 128k {out}", rate, ch, rate, 0});
            cases.push_back({"vorbis_" + tag, ".ogg", std::string(ff) + "-c:a libvorbis -q:a 5 {out}", rate, ch, rate, 0});
            cases.push_back({"opus_" + tag, ".opus", std::string(ff) + "-c:a libopus -b:a 96k {out}", rate, ch, 48000, 0});
            cases.push_back({"aac_" + tag, ".m4a", std::string(ff) + "-c:a aac -b:a 128k {out}", rate, ch, rate, 0});
            cases.push_back({"flac_" + tag, ".flac", std::string(ff) + "-c:a flac {out}", rate, ch, rate, 0});
        }
    // Files from a second producer.
    cases.push_back({"sox_flac_24bit_48000_stereo", ".flac", "sox {in} -b 24 {out}", 48000, 2, 48000, 0});
    // FFmpeg's decoder gives 128 frames fewer than the stream declares for
    // sox's Vorbis files; the same as its own command-line tool produces.
    cases.push_back({"sox_vorbis_44100_mono", ".ogg", "sox {in} -C 6 {out}", 44100, 1, 44100, 128});
    cases.push_back({"sox_mp3_22050_stereo", ".mp3", "sox {in} -C 128 {out}", 22050, 2, 22050, 2400});
    cases.push_back({"raw_adts_aac_48000_stereo", ".aac", std::string(ff) + "-c:a aac -f adts {out}", 48000, 2, 48000, 2048});
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Formats, ExternalFileTest, testing::ValuesIn(externalCases()),
                         [](const testing::TestParamInfo<ExternalCase>& info) { return info.param.label; });

