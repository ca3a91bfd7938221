#include "cloning/WorkerProtocol.h"

#include <QJsonDocument>

#include <bit>
#include <cstring>

namespace parlova {

QList<QByteArray> LineSplitter::append(const QByteArray& chunk) {
    QList<QByteArray> lines;
    buffer_.append(chunk);
    qsizetype start = 0;
    for (qsizetype end; (end = buffer_.indexOf('\n', start)) >= 0; start = end + 1)
        lines.append(buffer_.mid(start, end - start));
    buffer_.remove(0, start);
    return lines;
}

std::optional<QJsonObject> parseLine(const QByteArray& line) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(line, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) return std::nullopt;
    return doc.object();
}

CloneResult resultFromLine(const QJsonObject& line) {
    const QJsonValue ok = line.value("ok");
    const QJsonValue output = line.value("output");
    if (!(ok.isBool() && ok.toBool()) || !output.isString()) {
        const QJsonValue error = line.value("error");
        return CloneResult::failure(error.isString() ? error.toString() : kCloningFailedMessage);
    }
    CloneReply reply;
    reply.output = output.toString();
    reply.duration = line.value("audio_seconds").toDouble(0);
    reply.elapsed = line.value("seconds").toDouble(0);
    const QJsonValue used = line.value("samples_used");
    reply.samplesUsed = used.isDouble() ? used.toInt(1) : 1;
    if (line.value("verified").isBool()) reply.verified = line.value("verified").toBool();
    if (line.value("text").isString()) reply.text = line.value("text").toString();
    reply.raw = line;
    return {reply, {}};
}

QByteArray encodeSamples(const float* samples, size_t count) {
    // The protocol's floats are little-endian, as this platform's are.
    static_assert(std::endian::native == std::endian::little);
    return QByteArray::fromRawData(reinterpret_cast<const char*>(samples), qsizetype(count * sizeof(float)))
        .toBase64();
}

std::vector<float> decodeSamples(const QByteArray& base64) {
    const QByteArray bytes = QByteArray::fromBase64(base64);
    std::vector<float> samples(size_t(bytes.size()) / sizeof(float));
    if (!samples.empty()) std::memcpy(samples.data(), bytes.constData(), samples.size() * sizeof(float));
    return samples;
}

}  // namespace parlova
