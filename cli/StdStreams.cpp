#include "cli/StdStreams.h"

#include "cli/Command.h"

#include <QFile>

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace parlova::cli {
namespace {

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = 0; !from.empty() && (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

// What a message says of a temporary file: the stream it stands for.
std::string aboutStream(const std::string& message, const std::string& tempPath, const std::string& stream) {
    return replaceAll(message, "\u201C" + tempPath + "\u201D", stream);
}

bool readAll(FILE* from, QByteArray& into) {
    char buffer[65536];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, from)) > 0) into.append(buffer, static_cast<qsizetype>(n));
    return !std::ferror(from);
}

}  // namespace

QByteArray readWholeInput(const std::string& path) {
    QByteArray data;
    if (path == "-") {
        if (!readAll(stdin, data)) throw Failure(std::string("Couldn't read standard input: ") + std::strerror(errno) + ".");
        return data;
    }
    std::error_code ec;
    if (fs::is_directory(path, ec)) throw Failure("\"" + path + "\" is a folder, not a file.");
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) throw Failure("Couldn't open \"" + path + "\": " + std::strerror(errno) + ".");
    const bool ok = readAll(file, data);
    const int err = errno;
    std::fclose(file);
    if (!ok) throw Failure("Couldn't read \"" + path + "\": " + std::strerror(err) + ".");
    return data;
}

AudioInput::AudioInput(const std::string& path) : path_(path) {
    if (path != "-") return;
    if (isatty(STDIN_FILENO))
        throw UsageError("'-' reads audio from standard input, but that is the terminal; pipe a file in.");
    temp_ = std::make_unique<QTemporaryDir>();
    path_ = temp_->filePath("input").toStdString();
    QFile file(QString::fromStdString(path_));
    if (!temp_->isValid() || !file.open(QIODevice::WriteOnly))
        throw Failure("Couldn't make a temporary file for standard input.");
    file.write(readWholeInput("-"));
    if (!file.flush()) throw Failure("Couldn't keep standard input in a temporary file: the disk may be full.");
}

std::string AudioInput::describe(const std::string& message) const {
    return temp_ ? aboutStream(message, path_, "standard input") : message;
}

AudioOutput::AudioOutput(const std::string& path, const std::string& type) : path_(path) {
    if (path != "-") {
        if (!type.empty()) throw UsageError("--type is for writing to standard output ('-'); the file name's extension picks the type.");
        return;
    }
    const std::string chosen = type.empty() ? "wav" : type;
    if (chosen != "wav" && chosen != "flac")
        throw UsageError("--type takes wav or flac for standard output (got \"" + type + "\").");
    if (isatty(STDOUT_FILENO))
        throw UsageError("'-' writes audio to standard output, but that is the terminal; redirect it to a file or a pipe.");
    temp_ = std::make_unique<QTemporaryDir>();
    if (!temp_->isValid()) throw Failure("Couldn't make a temporary file for standard output.");
    path_ = temp_->filePath(QString::fromStdString("output." + chosen)).toStdString();
}

std::string AudioOutput::describe(const std::string& message) const {
    return temp_ ? aboutStream(message, path_, "standard output") : message;
}

void AudioOutput::deliver() const {
    if (!temp_) return;
    FILE* file = std::fopen(path_.c_str(), "rb");
    if (!file) throw Failure("Couldn't read back the rendered audio for standard output.");
    char buffer[65536];
    size_t n;
    bool ok = true;
    while (ok && (n = std::fread(buffer, 1, sizeof buffer, file)) > 0) ok = std::fwrite(buffer, 1, n, stdout) == n;
    std::fclose(file);
    if (!ok || std::fflush(stdout) != 0)
        throw Failure(std::string("Couldn't write to standard output: ") + std::strerror(errno) + ".");
}

void refuseSameFile(const std::string& input, const std::string& output) {
    if (input == "-" || output == "-") return;
    std::error_code ec;
    const bool same = fs::equivalent(input, output, ec) ||
                      (fs::weakly_canonical(input, ec) == fs::weakly_canonical(output, ec) && !ec);
    if (same)
        throw UsageError("The output \"" + output + "\" is the input file; choose another name so the input isn't overwritten.");
}

}  // namespace parlova::cli
