// Bad input and bad destinations: every case is a VoiceEngineError with a
// finished sentence naming the file, never a crash.
#include "media/AudioFile.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <random>

using namespace parlova;
using namespace parlova::testaudio;
namespace fs = std::filesystem;

namespace {

std::string openError(const std::string& path) {
    return errorOf([&] { AudioFileReader::open(path); }, "(opened without error)");
}

std::string createError(const std::string& path, AudioFormat format = {48000, 2}) {
    return errorOf([&] { AudioFileWriter::create(path, format)->finish(); }, "(created without error)");
}

void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string randomBytes(size_t count, uint32_t seed) {
    std::mt19937 rng(seed);
    std::string bytes(count, '\0');
    for (auto& b : bytes) b = static_cast<char>(rng());
    return bytes;
}

void encode(const std::string& path, const Audio& audio) {
    auto writer = AudioFileWriter::create(path, {48000, 2});
    writer->write(audio.pointers().data(), static_cast<int>(audio.frames()));
    writer->finish();
}

// Keeps the first `fraction` of a file's bytes.
void truncateFile(const std::string& path, double fraction) {
    fs::resize_file(path, static_cast<uintmax_t>(static_cast<double>(fs::file_size(path)) * fraction));
}

// Runs `action` in a child process as an unprivileged user (root ignores file
// permissions) and returns the message it produced.
std::string asUnprivilegedUser(const std::function<std::string()>& action) {
    int fds[2];
    if (pipe(fds) != 0) return "(pipe failed)";
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(2);
        const std::string message = action();
        const ssize_t written = ::write(fds[1], message.data(), message.size());
        _exit(written == static_cast<ssize_t>(message.size()) ? 0 : 3);
    }
    close(fds[1]);
    std::string message;
    char buf[512];
    for (ssize_t n; (n = ::read(fds[0], buf, sizeof buf)) > 0;) message.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? message : "(child failed)";
}

}  // namespace

TEST(AudioFileReaderErrors, EveryBadFileGivesItsSentence) {
    TempFolder dir;
    const Audio clip = spread(tone(1000, 48000, 96000), 48000, 2);
    writeBytes(dir.file("empty.wav"), "");
    ASSERT_TRUE(writeWav(dir.file("silence.wav"), Audio{48000, {{}, {}}}));
    fs::create_directory(dir.file("Takes.wav"));
    writeBytes(dir.file("notes.txt"), "Buy milk.\nRecord three takes of the intro.\n");
    writeBytes(dir.file("random.wav"), randomBytes(200000, 42));
    writeBytes(dir.file("random.mp3"), randomBytes(200000, 42));
    ASSERT_TRUE(writeWav(dir.file("cut.wav"), clip));
    truncateFile(dir.file("cut.wav"), 0.5);
    for (const char* name : {"cut.flac", "cut.m4a"}) {
        encode(dir.file(name), clip);
        ASSERT_NO_THROW(AudioFileReader::open(dir.file(name)));
        truncateFile(dir.file(name), 0.6);
    }
    encode(dir.file("garbled.flac"), noise(2.0, 48000, 2));  // a good header, then garbage for the audio
    std::fstream(dir.file("garbled.flac"), std::ios::binary | std::ios::in | std::ios::out).seekp(8192)
        << randomBytes(300000, 3);

    const std::string unreadable = "\u201D isn't an audio file Parlova can read.";
    const std::string damaged = "\u201D is damaged or incomplete.";
    const std::pair<std::string, std::string> cases[] = {
        {dir.file("clip.wav"), "The file \u201Cclip.wav\u201D doesn't exist."},
        {dir.file("nowhere/clip.wav"), "The file \u201Cclip.wav\u201D doesn't exist."},
        {dir.file("empty.wav"), "The file \u201Cempty.wav\u201D holds no audio."},
        {dir.file("silence.wav"), "The file \u201Csilence.wav\u201D holds no audio."},
        {dir.file("Takes.wav"), "\u201CTakes.wav\u201D is a folder, not an audio file."},
        {dir.file("notes.txt"), "The file \u201Cnotes.txt" + unreadable},
        {dir.file("random.wav"), "The file \u201Crandom.wav" + unreadable},
        {dir.file("random.mp3"), "The file \u201Crandom.mp3" + unreadable},
        {"/dev/null", "The file \u201Cnull" + unreadable},
        {dir.file("cut.wav"), "The file \u201Ccut.wav" + damaged},
        {dir.file("cut.flac"), "The file \u201Ccut.flac" + damaged},
        {dir.file("cut.m4a"), "The file \u201Ccut.m4a" + damaged},
        {dir.file("garbled.flac"), "The file \u201Cgarbled.flac" + damaged},
    };
    for (const auto& [path, sentence] : cases) EXPECT_EQ(openError(path), sentence) << path;
}

TEST(AudioFileReaderErrors, UnreadableFileIsNotAllowed) {
    TempFolder dir;
    const std::string path = dir.file("private.wav");
    ASSERT_TRUE(writeWav(path, spread(tone(440, 48000, 4800), 48000)));
    fs::permissions(path, fs::perms::none);
    chmod(dir.path().c_str(), 0755);
    EXPECT_EQ(asUnprivilegedUser([&] { return openError(path); }),
              "Parlova isn't allowed to read the file \u201Cprivate.wav\u201D.");
}

TEST(AudioFileWriterErrors, BadDestinationsTypesAndFormats) {
    TempFolder dir;
    fs::create_directory(dir.file("Exports.wav"));
    writeBytes(dir.file("notes.txt"), "text");
    const std::tuple<const char*, AudioFormat, const char*> cases[] = {
        {"take.xyz", {48000, 2}, "The file type \u201C.xyz\u201D isn't supported; use .m4a, .wav or .flac."},
        {"take", {48000, 2}, "The file name \u201Ctake\u201D has no type; end it with .m4a, .wav or .flac."},
        {"missing/take.m4a", {48000, 2}, "The folder \u201Cmissing\u201D doesn't exist."},
        {"Exports.wav", {48000, 2}, "\u201CExports.wav\u201D is a folder; choose a file name to export to."},
        {"notes.txt/take.flac", {48000, 2}, "\u201Cnotes.txt\u201D isn't a folder."},
        {"a.wav", {48000, 0}, "Parlova can't write audio with 0 channels."},
        {"a.wav", {0, 2}, "Parlova can't write audio at a sample rate of 0 Hz."},
    };
    for (const auto& [name, format, sentence] : cases) EXPECT_EQ(createError(dir.file(name), format), sentence) << name;
    EXPECT_FALSE(fs::exists(dir.file("a.wav")));
}

TEST(AudioFileWriterErrors, UnwritableFolderAndFullDisk) {
    TempFolder dir;
    fs::create_directory(dir.file("Locked"));
    chmod(dir.path().c_str(), 0755);
    chmod(dir.file("Locked").c_str(), 0555);
    EXPECT_EQ(asUnprivilegedUser([&] { return createError(dir.file("Locked/take.m4a")); }),
              "Parlova can't write to the folder \u201CLocked\u201D: permission denied.");

    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    EXPECT_EQ(errorOf(
                  [] {
                      auto writer = AudioFileWriter::create("/dev/full", {48000, 2}, AudioFileType::wav);
                      Audio n = noise(3.0, 48000, 2);
                      writer->write(n.pointers().data(), static_cast<int>(n.frames()));
                      writer->finish();
                  },
                  "(writing to a full disk succeeded)"),
              "There isn't enough disk space to write \u201Cfull\u201D.");
    EXPECT_TRUE(fs::exists("/dev/full"));
}
