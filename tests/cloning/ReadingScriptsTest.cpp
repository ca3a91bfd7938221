#include "cloning/ReadingScripts.h"

#include <gtest/gtest.h>

using namespace parlova;

namespace {

ClonedVoice voiceThatRead(const QStringList& transcripts) {
    ClonedVoice voice{QUuid::createUuid(), "Reader", {}};
    for (const auto& t : transcripts) voice.samples.append({QUuid::createUuid(), "s.wav", t, 12, {}});
    return voice;
}

}  // namespace

TEST(ReadingScriptsTest, ReadSentencesIgnorePunctuationAndCapitals) {
    const QStringList& all = ReadingScripts::sentences();
    ASSERT_GE(all.size(), 2);
    EXPECT_EQ(ReadingScripts::readCount(voiceThatRead({})), 0);
    // Two sentences in one transcript, shouted and unpunctuated, with a stray word.
    const ClonedVoice voice = voiceThatRead({"um HEY sorry im late the traffic was absolutely terrible this morning  "
                                             "welcome back to the channel today were going to build"});
    EXPECT_EQ(ReadingScripts::readSentences(voice), (QSet<QString>{all[0], all[1]}));

    for (int round = 0; round < 20; ++round) {
        const QStringList script = ReadingScripts::nextSentences(voice, 3, {all[2]});
        ASSERT_EQ(script.size(), 3);
        for (const auto& s : script) EXPECT_TRUE(s != all[0] && s != all[1] && s != all[2]);
    }
}

TEST(ReadingScriptsTest, ScriptsStayFullOnceEverythingHasBeenRead) {
    const ClonedVoice voice = voiceThatRead(ReadingScripts::sentences());
    EXPECT_EQ(ReadingScripts::readCount(voice), ReadingScripts::sentences().size());
    const QString script = ReadingScripts::next(voice, 4, {ReadingScripts::sentences()[0]});
    EXPECT_FALSE(script.contains(ReadingScripts::sentences()[0]));
    // Four sentences joined by single spaces: four end marks, none doubled.
    EXPECT_FALSE(script.contains("  "));
    EXPECT_EQ(ReadingScripts::nextSentences(voice, 4).size(), 4);
    // One unread sentence always comes first.
    ClonedVoice almost = voice;
    almost.samples.removeLast();
    EXPECT_EQ(ReadingScripts::nextSentences(almost, 3).value(0), ReadingScripts::sentences().last());
}
