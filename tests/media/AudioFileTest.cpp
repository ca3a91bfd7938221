// Reading and writing audio files: our own WAVs bit for bit, files made by
// external encoders, and round trips through every export type, all read back
// with the engine's reader.
#include "media/AudioFile.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <vector>

using namespace parlova;
using namespace parlova::testaudio;
namespace fs = std::filesystem;

namespace {

// Reads a whole file in blocks of `block` frames.
Audio readInBlocks(AudioFileReader& reader, int block) {
    Audio a{reader.format().sampleRate, std::vector<std::vector<float>>(static_cast<size_t>(reader.format().channels))};
    std::vector<std::vector<float>> buf(a.channels.size(), std::vector<float>(static_cast<size_t>(block)));
    std::vector<float*> ptrs;
    for (auto& b : buf) ptrs.push_back(b.data());
    for (int n; (n = reader.read(ptrs.data(), block)) > 0;)
        for (size_t c = 0; c < buf.size(); ++c) a.channels[c].insert(a.channels[c].end(), buf[c].begin(), buf[c].begin() + n);
    return a;
}

// Writes `audio` in uneven blocks, as a renderer would.
void writeAll(AudioFileWriter& writer, const Audio& audio) {
    const int blocks[] = {256, 1000, 37, 4096, 1};
    for (int64_t done = 0, i = 0; done < audio.frames(); done += blocks[i++ % 5]) {
        std::vector<const float*> p;
        for (const auto& ch : audio.channels) p.push_back(ch.data() + done);
        writer.write(p.data(), static_cast<int>(std::min<int64_t>(blocks[i % 5], audio.frames() - done)));
    }
    writer.finish();
}

// Each channel of `back` holds a 1 kHz tone at the level of `source`'s (after
// a tenth of a second, where encoder priming has passed).
void expectSameTone(const Audio& back, const Audio& source, double hzTolerance) {
    ASSERT_EQ(back.channelCount(), source.channelCount());
    const auto rate = static_cast<size_t>(back.sampleRate);
    for (size_t ch = 0; ch < back.channels.size(); ++ch) {
        const auto sourceRate = static_cast<size_t>(source.sampleRate);
        const double level = rms(source.channels[ch], sourceRate / 10, sourceRate);
        EXPECT_NEAR(toDb(rms(back.channels[ch], rate / 10, rate) / level), 0.0, 0.5) << "channel " << ch;
        EXPECT_NEAR(fundamental(back.channels[ch], back.sampleRate, rate / 10, rate), 1000.0, hzTolerance) << ch;
    }
}

}  // namespace

TEST(AudioFileReader, ReadsFloatWavBitExactInAnyBlockSizeAndRewinds) {
    TempFolder dir;
    Audio source = noise(0.7, 44100, 2, 0.8f, 7);
    ASSERT_TRUE(writeWav(dir.file("noise.wav"), source));
    auto reader = AudioFileReader::open(dir.file("noise.wav"));
    EXPECT_EQ(reader->format(), (AudioFormat{44100.0, 2}));
    EXPECT_EQ(reader->frameLength(), source.frames());
    EXPECT_EQ(readInBlocks(*reader, 333).channels, source.channels);
    EXPECT_EQ(reader->framesLeft(), 0);
    reader->rewind();
    EXPECT_EQ(readInBlocks(*reader, 4096).channels, source.channels);
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

// A file made by an external tool: its command ({in} and {out} replaced), the
// source's rate and channels, the rate the decoder must report, and how many
// frames the decoded length may differ from the source's.
struct ExternalCase {
    const char *label, *extension, *command;
    int rate, channels, decodedRate, lengthTolerance;
};

class ExternalFileTest : public testing::TestWithParam<ExternalCase> {};

TEST_P(ExternalFileTest, DecodesToneWithRateChannelsLengthLevelAndPitch) {
    const ExternalCase& c = GetParam();
    std::string cmd = c.command;
    if (!haveTool(cmd.substr(0, cmd.find(' ')))) GTEST_SKIP() << cmd << ": the tool isn't installed";
    TempFolder dir;
    Audio source = spread(tone(1000, c.rate, static_cast<size_t>(1.5 * c.rate), 0.5f), c.rate, c.channels);
    const std::string out = dir.file(std::string("made") + c.extension);
    ASSERT_TRUE(writeWav(dir.file("source.wav"), source, 16));
    cmd.replace(cmd.find("{in}"), 4, shellQuote(dir.file("source.wav")));
    cmd.replace(cmd.find("{out}"), 5, shellQuote(out));
    ASSERT_EQ(runQuiet(cmd), 0) << cmd;

    auto reader = AudioFileReader::open(out);
    EXPECT_EQ(reader->format(), (AudioFormat{static_cast<double>(c.decodedRate), c.channels}));
    EXPECT_NEAR(static_cast<double>(reader->frameLength()), 1.5 * c.decodedRate, c.lengthTolerance);
    Audio back = readInBlocks(*reader, 1024);
    ASSERT_EQ(back.frames(), reader->frameLength());
    expectSameTone(back, source, 1.0);
}

#define FF "ffmpeg -nostdin -y -i {in} "
INSTANTIATE_TEST_SUITE_P(
    Formats, ExternalFileTest,
    testing::Values(ExternalCase{"mp3_stereo", ".mp3", FF "-c:a libmp3lame -b:a 128k {out}", 48000, 2, 48000, 0},
                    ExternalCase{"vorbis_stereo", ".ogg", FF "-c:a libvorbis -q:a 5 {out}", 22050, 2, 22050, 0},
                    ExternalCase{"opus_mono", ".opus", FF "-c:a libopus -b:a 96k {out}", 44100, 1, 48000, 0},
                    ExternalCase{"aac_stereo", ".m4a", FF "-c:a aac -b:a 128k {out}", 22050, 2, 22050, 0},
                    ExternalCase{"flac_mono", ".flac", FF "-c:a flac {out}", 22050, 1, 22050, 0},
                    ExternalCase{"raw_adts_aac", ".aac", FF "-c:a aac -f adts {out}", 48000, 2, 48000, 2048},
                    ExternalCase{"sox_flac_24bit", ".flac", "sox {in} -b 24 {out}", 48000, 2, 48000, 0},
                    // FFmpeg's decoder gives 128 frames fewer than the stream declares for
                    // sox's Vorbis files; the same as its own command-line tool produces.
                    ExternalCase{"sox_vorbis", ".ogg", "sox {in} -C 6 {out}", 44100, 1, 44100, 128},
                    ExternalCase{"sox_mp3", ".mp3", "sox {in} -C 128 {out}", 22050, 2, 22050, 2400}),
    [](const testing::TestParamInfo<ExternalCase>& info) { return std::string(info.param.label); });
#undef FF

TEST(AudioFileTypes, ByTheNamesOwnExtensionInAnyCase) {
    EXPECT_EQ(audioFileTypeForPath("dir.x/Take.M4A"), AudioFileType::m4a);
    EXPECT_EQ(audioFileTypeForPath("take.FLAC"), AudioFileType::flac);
    EXPECT_EQ(audioFileTypeForPath("m4a"), std::nullopt);
}

struct RoundTripCase {
    AudioFileType type;
    int rate, channels;
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
    // The AAC encoder's priming and padding are marked in the file and dropped on reading.
    ASSERT_EQ(back.frames(), source.frames());
    // 32-bit float WAV is exact, 24-bit FLAC within half a step.
    const double step = c.type == AudioFileType::wav ? 0.0 : c.type == AudioFileType::flac ? 0.6 / 8388608.0 : 1.0;
    for (size_t ch = 0; ch < source.channels.size(); ++ch)
        for (size_t i = 0; i < source.channels[ch].size(); ++i)
            ASSERT_LE(std::fabs(back.channels[ch][i] - source.channels[ch][i]), step) << ch << " " << i;
    expectSameTone(back, source, 0.5);
}

INSTANTIATE_TEST_SUITE_P(
    Types, AudioFileRoundTrip,
    testing::Values(RoundTripCase{AudioFileType::wav, 22050, 1}, RoundTripCase{AudioFileType::wav, 96000, 8},
                    RoundTripCase{AudioFileType::flac, 44100, 1}, RoundTripCase{AudioFileType::flac, 16000, 6},
                    RoundTripCase{AudioFileType::m4a, 44100, 1}, RoundTripCase{AudioFileType::m4a, 48000, 2},
                    RoundTripCase{AudioFileType::m4a, 48000, 3}, RoundTripCase{AudioFileType::m4a, 44100, 6}),
    [](const testing::TestParamInfo<RoundTripCase>& info) {
        return std::string(extensionForAudioFileType(info.param.type) + 1) + "_" + std::to_string(info.param.rate) +
               "_" + std::to_string(info.param.channels) + "ch";
    });

TEST(AudioFileWriter, AacAtAnUnsupportedRateIsResampledToTheNextOne) {
    TempFolder dir;
    auto writer = AudioFileWriter::create(dir.file("odd.m4a"), {37800, 2});
    EXPECT_EQ(writer->fileSampleRate(), 44100);
    writeAll(*writer, spread(tone(1000, 37800, 37800), 37800, 2));
    Audio back = readAudioFile(dir.file("odd.m4a"));
    EXPECT_EQ(back.sampleRate, 44100);
    EXPECT_NEAR(back.seconds(), 1.0, 0.03);
    EXPECT_NEAR(fundamental(back.channels[1], 44100, 4410, 30000), 1000.0, 0.5);
    EXPECT_NEAR(rms(back.channels[0], 4410, 30000), 0.5 / std::sqrt(2.0), 0.01);
}

TEST(AudioFileWriter, ReplacesAnExistingFileAndRemovesAnUnfinishedOne) {
    TempFolder dir;
    const std::string path = dir.file("take.wav"), abandoned = dir.file("abandoned.m4a");
    std::ofstream(path) << "an older export that is much longer than a header";
    writeAll(*AudioFileWriter::create(path, {8000, 1}), spread(tone(500, 8000, 4000), 8000));
    EXPECT_EQ(readAudioFile(path).frames(), 4000);
    {
        auto writer = AudioFileWriter::create(abandoned, {48000, 2});
        Audio a = spread(tone(500, 48000, 24000), 48000, 2);
        writer->write(a.pointers().data(), static_cast<int>(a.frames()));
        EXPECT_TRUE(fs::exists(abandoned));
    }
    EXPECT_FALSE(fs::exists(abandoned));
}
