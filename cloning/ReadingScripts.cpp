#include "cloning/ReadingScripts.h"

#include <QRandomGenerator>

#include <algorithm>
#include <random>

namespace parlova {

QString ReadingScripts::normalised(const QString& text) {
    QString kept;
    kept.reserve(text.size());
    for (const QChar c : text.toLower())
        if (c.isLetter() || c.isSpace()) kept.append(c);
    return kept.simplified();
}

namespace {

bool isRead(const QString& sentence, const QStringList& transcripts) {
    const QString key = ReadingScripts::normalised(sentence).left(30);
    return std::any_of(transcripts.begin(), transcripts.end(), [&](const QString& t) { return t.contains(key); });
}

QStringList normalisedTranscripts(const ClonedVoice& voice) {
    QStringList list;
    for (const auto& s : voice.samples) list.append(ReadingScripts::normalised(s.transcript));
    return list;
}

}  // namespace

QSet<QString> ReadingScripts::readSentences(const ClonedVoice& voice) {
    const QStringList transcripts = normalisedTranscripts(voice);
    QSet<QString> read;
    for (const auto& s : sentences())
        if (isRead(s, transcripts)) read.insert(s);
    return read;
}

int ReadingScripts::readCount(const ClonedVoice& voice) { return int(readSentences(voice).size()); }

QStringList ReadingScripts::nextSentences(const ClonedVoice& voice, int count, const QSet<QString>& avoiding) {
    const QSet<QString> read = readSentences(voice);
    QStringList unread, topUp;
    for (const auto& s : sentences()) {
        if (avoiding.contains(s)) continue;
        (read.contains(s) ? topUp : unread).append(s);
    }
    // Unread sentences always come first; read ones only fill a short script.
    std::shuffle(unread.begin(), unread.end(), *QRandomGenerator::global());
    std::shuffle(topUp.begin(), topUp.end(), *QRandomGenerator::global());
    return (unread + topUp).mid(0, std::max(0, count));
}

QString ReadingScripts::next(const ClonedVoice& voice, int count, const QSet<QString>& avoiding) {
    return nextSentences(voice, count, avoiding).join(' ');
}

}  // namespace parlova
