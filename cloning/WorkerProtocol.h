#pragma once
// The clone worker's line protocol, as plain functions: splitting its output
// into lines, reading a reply, and the base64 float blocks of live audio.
#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>
#include <vector>

namespace parlova {

// Bytes read from the worker that don't yet end in a newline are kept until
// the rest arrives.
class LineSplitter {
public:
    // Adds a chunk; returns every line it completes, newline removed.
    QList<QByteArray> append(const QByteArray& chunk);
    const QByteArray& buffer() const { return buffer_; }

private:
    QByteArray buffer_;
};

// One successful request.
struct CloneReply {
    QString output;          // the file written ("" where there is none)
    double duration = 0;     // seconds of audio produced ("audio_seconds")
    double elapsed = 0;      // seconds the worker spent ("seconds")
    int samplesUsed = 1;     // "samples_used"; 1 when missing
    std::optional<bool> verified;
    std::optional<QString> text;
    QJsonObject raw;         // the whole line, for keys only some requests carry
};

// The reply of a line carrying an id: a CloneReply when "ok" is true and
// "output" is text, else the failure's sentence ("error", or "Voice cloning failed.").
struct CloneResult {
    std::optional<CloneReply> reply;
    QString error;
    bool ok() const { return reply.has_value(); }
    static CloneResult failure(const QString& message) { return {std::nullopt, message}; }
};
CloneResult resultFromLine(const QJsonObject& line);

// Parses one line; nothing when it is not a JSON object.
std::optional<QJsonObject> parseLine(const QByteArray& line);

// Base64 of little-endian 32-bit floats; a trailing partial sample is ignored.
QByteArray encodeSamples(const float* samples, size_t count);
std::vector<float> decodeSamples(const QByteArray& base64);

inline const QString kWorkerStoppedMessage = QStringLiteral("The voice model stopped unexpectedly.");
inline const QString kWorkerNotRunningMessage = QStringLiteral("The voice model isn't running.");
inline const QString kCloningFailedMessage = QStringLiteral("Voice cloning failed.");

}  // namespace parlova
