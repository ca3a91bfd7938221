// Bad input and bad destinations: every case is a VoiceEngineError with a
// finished sentence naming the file, never a crash.
#include "engine/AudioFile.h"
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
    try {
        AudioFileReader::open(path);
    } catch (const VoiceEngineError& e) {
        return e.errorDescription();
    }
    return "(opened without error)";
}

void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
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

TEST(AudioFileReaderErrors, MissingEmptyFolderAndNonAudioFiles) {
    TempFolder dir;
    EXPECT_EQ(openError(dir.file("clip.wav")), "The file \u201Cclip.wav\u201D doesn't exist.");
    EXPECT_EQ(openError(dir.file("nowhere/clip.wav")), "The file \u201Cclip.wav\u201D doesn't exist.");

    writeBytes(dir.file("empty.wav"), "");
    EXPECT_EQ(openError(dir.file("empty.wav")), "The file \u201Cempty.wav\u201D holds no audio.");

    ASSERT_TRUE(writeWav(dir.file("silence.wav"), Audio{48000, {{}, {}}}));
    EXPECT_EQ(openError(dir.file("silence.wav")), "The file \u201Csilence.wav\u201D holds no audio.");

    fs::create_directory(dir.file("Takes.wav"));
    EXPECT_EQ(openError(dir.file("Takes.wav")), "\u201CTakes.wav\u201D is a folder, not an audio file.");

    writeBytes(dir.file("notes.txt"), "Buy milk.\nRecord three takes of the intro.\n");
    EXPECT_EQ(openError(dir.file("notes.txt")), "The file \u201Cnotes.txt\u201D isn't an audio file Parlova can read.");

    std::mt19937 rng(42);
    std::string random(200000, '\0');
    for (auto& b : random) b = static_cast<char>(rng());
    writeBytes(dir.file("random.wav"), random);
    EXPECT_EQ(openError(dir.file("random.wav")), "The file \u201Crandom.wav\u201D isn't an audio file Parlova can read.");
    writeBytes(dir.file("random.mp3"), random);
    EXPECT_EQ(openError(dir.file("random.mp3")), "The file \u201Crandom.mp3\u201D isn't an audio file Parlova can read.");

    EXPECT_EQ(openError("/dev/null"), "The file \u201Cnull\u201D isn't an audio file Parlova can read.");
}

TEST(AudioFileReaderErrors, TruncatedAndCorruptFilesAreDamaged) {
    TempFolder dir;
    Audio source = tone(1000, 2.0, 48000, 2);
    const std::string wav = dir.file("cut.wav");
    ASSERT_TRUE(writeWav(wav, source));
    truncateFile(wav, 0.5);
    EXPECT_EQ(openError(wav), "The file \u201Ccut.wav\u201D is damaged or incomplete.");

    for (const char* ext : {".flac", ".m4a"}) {
        const std::string path = dir.file(std::string("cut") + ext);
        auto writer = AudioFileWriter::create(path, {48000, 2});
        writer->write(source.pointers().data(), static_cast<int>(source.frames()));
        writer->finish();
        ASSERT_NO_THROW(AudioFileReader::open(path));
        truncateFile(path, 0.6);
        EXPECT_EQ(openError(path), "The file \u201Ccut" + std::string(ext) + "\u201D is damaged or incomplete.");
    }

    // A good header followed by garbage where the coded audio should be.
    const std::string flac = dir.file("garbled.flac");
    {
        auto writer = AudioFileWriter::create(flac, {48000, 2});
        Audio n = noise(2.0, 48000, 2);
        writer->write(n.pointers().data(), static_cast<int>(n.frames()));
        writer->finish();
    }
    {
        std::fstream f(flac, std::ios::binary | std::ios::in | std::ios::out);
        std::mt19937 rng(3);
        f.seekp(8192);
        for (int i = 0; i < 300000; ++i) f.put(static_cast<char>(rng()));
    }
    EXPECT_EQ(openError(flac), "The file \u201Cgarbled.flac\u201D is damaged or incomplete.");
}

TEST(AudioFileReaderErrors, UnreadableFileIsNotAllowed) {
    TempFolder dir;
    const std::string path = dir.file("private.wav");
    ASSERT_TRUE(writeWav(path, tone(440, 0.1, 48000)));
    fs::permissions(path, fs::perms::none);
    chmod(dir.path().c_str(), 0755);
    EXPECT_EQ(asUnprivilegedUser([&] { return openError(path); }),
              "Parlova isn't allowed to read the file \u201Cprivate.wav\u201D.");
}

namespace {

std::string createError(const std::string& path, AudioFormat format = {48000, 2}) {
    try {
        AudioFileWriter::create(path, format)->finish();
    } catch (const VoiceEngineError& e) {
        return e.errorDescription();
    }
    return "(created without error)";
}

}  // namespace

TEST(AudioFileWriterErrors, BadDestinationsTypesAndFormats) {
    TempFolder dir;
    EXPECT_EQ(createError(dir.file("take.xyz")), "The file type \u201C.xyz\u201D isn't supported; use .m4a, .wav or .flac.");
    EXPECT_EQ(createError(dir.file("take")), "The file name \u201Ctake\u201D has no type; end it with .m4a, .wav or .flac.");
    EXPECT_EQ(createError(dir.file("missing/take.m4a")), "The folder \u201Cmissing\u201D doesn't exist.");
    fs::create_directory(dir.file("Exports.wav"));
    EXPECT_EQ(createError(dir.file("Exports.wav")), "\u201CExports.wav\u201D is a folder; choose a file name to export to.");
    writeBytes(dir.file("notes.txt"), "text");
    EXPECT_EQ(createError(dir.file("notes.txt/take.flac")), "\u201Cnotes.txt\u201D isn't a folder.");

    EXPECT_EQ(createError(dir.file("a.wav"), {48000, 0}), "Parlova can't write audio with 0 channels.");
    EXPECT_EQ(createError(dir.file("a.wav"), {0, 2}), "Parlova can't write audio at a sample rate of 0 Hz.");
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
    try {
        auto writer = AudioFileWriter::create("/dev/full", {48000, 2}, AudioFileType::wav);
        Audio n = noise(3.0, 48000, 2);
        writer->write(n.pointers().data(), static_cast<int>(n.frames()));
        writer->finish();
        ADD_FAILURE() << "writing to a full disk succeeded";
    } catch (const VoiceEngineError& e) {
        EXPECT_EQ(e.errorDescription(), "There isn't enough disk space to write \u201Cfull\u201D.");
    }
    EXPECT_TRUE(fs::exists("/dev/full"));
}
