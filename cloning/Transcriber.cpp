#include "cloning/Transcriber.h"

#include "cloning/LocalRecogniser.h"
#include "cloning/ReadingScripts.h"
#include "cloning/VoiceCloner.h"

#include <QCoreApplication>
#include <QThreadPool>

#include <memory>
#include <vector>

namespace parlova {

namespace {

// A script sentence counts as read when this share of its words were heard
// in order (the local recogniser mishears about a third of a reading); the
// kept sentences must account for this share of what was heard.
constexpr double kSentenceMatch = 0.5;
constexpr double kCoverage = 0.8;

QStringList words(const QString& text) { return ReadingScripts::normalised(text).split(' ', Qt::SkipEmptyParts); }

// Recognisers split compounds ("rain drops"): two heard words that make up a
// script word become that word.
QStringList joinedCompounds(const QStringList& heard, const std::vector<QString>& expected) {
    QStringList joined;
    for (qsizetype j = 0; j < heard.size(); ++j) {
        if (j + 1 < heard.size() && std::find(expected.begin(), expected.end(), heard[j] + heard[j + 1]) != expected.end()) {
            joined.append(heard[j] + heard[j + 1]);
            ++j;
        } else {
            joined.append(heard[j]);
        }
    }
    return joined;
}

}  // namespace

std::optional<QString> Transcriber::snapToScript(const QString& recognised, const QStringList& script) {
    std::vector<QString> expected;
    std::vector<int> sentenceOf;
    for (int s = 0; s < script.size(); ++s)
        for (const QString& w : words(script[s])) {
            expected.push_back(w);
            sentenceOf.push_back(s);
        }
    const QStringList heard = joinedCompounds(words(recognised), expected);
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
    int matched = 0, keptWords = 0;
    for (int s = 0; s < script.size(); ++s) {
        if (wordsIn[size_t(s)] == 0 || matchedIn[size_t(s)] < kSentenceMatch * wordsIn[size_t(s)]) continue;
        kept.append(script[s]);
        matched += matchedIn[size_t(s)];
        keptWords += wordsIn[size_t(s)];
    }
    // A kept word that was misheard leaves a heard word unmatched too; that
    // pair is a mistake of the recogniser, not something else said. What is
    // left over beyond such pairs was not read from the script.
    const int misheard = std::min(int(m) - matched, keptWords - matched);
    if (kept.isEmpty() || matched + misheard < kCoverage * double(m)) return std::nullopt;
    return kept.join(' ');
}

bool Transcriber::isAvailable() const { return (cloner_ && cloner_->isInstalled()) || LocalRecogniser::isAvailable(); }

void Transcriber::transcribe(const QString& path, const QStringList& script, Done done) const {
    if (!cloner_ || !cloner_->isInstalled()) return transcribeLocally(path, script, std::move(done));
    cloner_->transcribe(path, [path, script, done](const std::optional<QString>& text, const QString& error) {
        // A worker that fails or dies still leaves the local recogniser.
        if (!error.isEmpty()) return transcribeLocally(path, script, done);
        if (!text) return done(std::nullopt);
        if (const auto snapped = snapToScript(*text, script)) return done(snapped);
        done(text);
    });
}

void Transcriber::transcribeLocally(const QString& path, const QStringList& script, Done done) {
    if (!LocalRecogniser::isAvailable()) return done(std::nullopt);
    // One recognition at a time: each decoder holds its models (~40 MB), and
    // samples come one by one anyway.
    static QThreadPool* const pool = [] {
        auto* p = new QThreadPool(QCoreApplication::instance());
        p->setMaxThreadCount(1);
        p->setExpiryTimeout(10000);
        return p;
    }();
    QThreadPool* target = pool;
    target->start([path, script, done = std::move(done)] {
        std::optional<QString> text = LocalRecogniser::recognise(path);
        if (text)
            if (auto snapped = snapToScript(*text, script)) text = std::move(snapped);
        QMetaObject::invokeMethod(QCoreApplication::instance(), [done, text] { done(text); }, Qt::QueuedConnection);
    });
}

}  // namespace parlova
