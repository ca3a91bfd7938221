#include "cloning/Transcriber.h"

#include "cloning/ReadingScripts.h"
#include "cloning/VoiceCloner.h"

#include <memory>
#include <vector>

namespace parlova {

namespace {

// A script sentence counts as read when this share of its words were heard
// in order; the kept sentences must account for this share of what was heard.
constexpr double kSentenceMatch = 0.7;
constexpr double kCoverage = 0.8;

QStringList words(const QString& text) { return ReadingScripts::normalised(text).split(' ', Qt::SkipEmptyParts); }

}  // namespace

std::optional<QString> Transcriber::snapToScript(const QString& recognised, const QStringList& script) {
    const QStringList heard = words(recognised);
    std::vector<QString> expected;
    std::vector<int> sentenceOf;
    for (int s = 0; s < script.size(); ++s)
        for (const QString& w : words(script[s])) {
            expected.push_back(w);
            sentenceOf.push_back(s);
        }
    if (heard.isEmpty() || expected.empty()) return std::nullopt;

    // Longest common subsequence of the word lists, then walk it back to
    // learn which script words were heard.
    const size_t n = expected.size(), m = size_t(heard.size());
    std::vector<std::vector<int>> table(n + 1, std::vector<int>(m + 1, 0));
    for (size_t i = n; i-- > 0;)
        for (size_t j = m; j-- > 0;)
            table[i][j] = expected[i] == heard[qsizetype(j)] ? table[i + 1][j + 1] + 1
                                                             : std::max(table[i + 1][j], table[i][j + 1]);
    std::vector<int> matchedIn(size_t(script.size()), 0), wordsIn(size_t(script.size()), 0);
    for (int s : sentenceOf) ++wordsIn[size_t(s)];
    for (size_t i = 0, j = 0; i < n && j < m;) {
        if (expected[i] == heard[qsizetype(j)]) {
            ++matchedIn[size_t(sentenceOf[i])];
            ++i;
            ++j;
        } else if (table[i + 1][j] >= table[i][j + 1]) {
            ++i;
        } else {
            ++j;
        }
    }
    QStringList kept;
    int keptWords = 0;
    for (int s = 0; s < script.size(); ++s) {
        if (wordsIn[size_t(s)] == 0 || matchedIn[size_t(s)] < kSentenceMatch * wordsIn[size_t(s)]) continue;
        kept.append(script[s]);
        keptWords += matchedIn[size_t(s)];
    }
    if (kept.isEmpty() || keptWords < kCoverage * double(m)) return std::nullopt;
    return kept.join(' ');
}

bool Transcriber::isAvailable() const { return cloner_ && cloner_->isInstalled(); }

void Transcriber::transcribe(const QString& path, const QStringList& script, Done done) const {
    if (!isAvailable()) {
        done(std::nullopt);
        return;
    }
    cloner_->transcribe(path, [script, done](const std::optional<QString>& text, const QString&) {
        if (!text) return done(std::nullopt);
        if (const auto snapped = snapToScript(*text, script)) return done(snapped);
        done(text);
    });
}

}  // namespace parlova
