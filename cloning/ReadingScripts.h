#pragma once
// Reading scripts for recording samples: short sets of practice sentences
// chosen so that every new sample brings words the voice hasn't read yet.
// Sentences are compared with transcripts in a normalised form (lower case,
// letters and single spaces only), so punctuation and capitals don't matter.
#include "cloning/ClonedVoice.h"

#include <QSet>
#include <QStringList>

namespace parlova {

class ReadingScripts {
public:
    static const QStringList& sentences();

    static QString normalised(const QString& text);
    // How many practice sentences the voice has read: those whose first 30
    // normalised characters occur in a normalised transcript of its samples.
    static int readCount(const ClonedVoice& voice);
    // The sentences of the list that the voice has read.
    static QSet<QString> readSentences(const ClonedVoice& voice);
    // `count` sentences joined with single spaces: unread ones not in
    // `avoiding` first, topped up from the rest of the list when fewer remain,
    // shuffled uniformly.
    static QString next(const ClonedVoice& voice, int count, const QSet<QString>& avoiding = {});
    // The same choice as a list of sentences (what the page shows and avoids next).
    static QStringList nextSentences(const ClonedVoice& voice, int count, const QSet<QString>& avoiding = {});
};

}  // namespace parlova
