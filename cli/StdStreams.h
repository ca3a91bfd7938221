#pragma once
// "-" as a file name: standard input for a file the command reads, standard
// output for one it writes. Audio goes through a private temporary file, so
// the engine's own reader and writer see an ordinary file and a WAV header on
// a pipe carries its real length.
#include <QByteArray>
#include <QTemporaryDir>

#include <memory>
#include <string>

namespace parlova::cli {

// The whole of a file, or of standard input for "-". Throws Failure naming
// the path and the cause.
QByteArray readWholeInput(const std::string& path);

// An audio file the command reads: the path itself, or standard input copied
// to a temporary file.
class AudioInput {
public:
    explicit AudioInput(const std::string& path);  // throws Failure
    const std::string& path() const { return path_; }
    bool isStdin() const { return temp_ != nullptr; }
    // A message about the temporary file, told as being about standard input.
    std::string describe(const std::string& message) const;

private:
    std::unique_ptr<QTemporaryDir> temp_;
    std::string path_;
};

// An audio file the command writes: the path itself, or a temporary file of
// `type` ("wav" or "flac") copied to standard output by deliver().
class AudioOutput {
public:
    AudioOutput(const std::string& path, const std::string& type);  // throws UsageError
    const std::string& path() const { return path_; }
    bool isStdout() const { return temp_ != nullptr; }
    std::string describe(const std::string& message) const;
    // Copies a finished temporary file to standard output. Throws Failure.
    void deliver() const;

private:
    std::unique_ptr<QTemporaryDir> temp_;
    std::string path_;
};

// Refuses an output that is the input (the same file under any name).
// Throws UsageError.
void refuseSameFile(const std::string& input, const std::string& output);

}  // namespace parlova::cli
