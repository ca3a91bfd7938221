// The control words of the soundboard without a board, and "say" taken apart
// into its text and the voice that says it. (Refusals with a board are
// checked over the socket in the board's CLI test.)
#include "control/ControlCommands.h"
#include "control/VoiceSelection.h"
#include "engine/VoiceEngine.h"
#include "voices/VoiceStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;

TEST(BoardControl, WithoutABoardTheWordsAreRefusedWithASentence) {
    QTemporaryDir dir;
    QSettings settings(dir.filePath("settings.ini"), QSettings::IniFormat);
    BackendJobs jobs;
    VoiceEngine engine(&settings, nullptr, jobs);
    VoiceStore store(&settings);
    VoiceSelection selection(engine, store);
    ControlCommands commands(engine, selection);
    for (const char* request : {"board play Applause", "board stop", "say Hello there"}) {
        const ControlReply reply = commands.runLine(request);
        EXPECT_FALSE(reply.ok) << request;
        EXPECT_TRUE(reply.message.startsWith("This Parlova has no soundboard")) << reply.message.toStdString();
    }
    EXPECT_FALSE(commands.status().contains("board"));
}

TEST(BoardControl, SayTakesTheTextThenOneVoiceNamedByTheRestOfTheLine) {
    const struct {
        const char* words;
        QStringList parts;  // text, voice, clone
    } good[] = {
        {"I'll be right back --voice Old Lady", {"I'll be right back", "Old Lady", ""}},
        {"  Lunch?   --clone   My Voice  ", {"Lunch?", "", "My Voice"}},
        {"Use --voiced consonants", {"Use --voiced consonants", "", ""}},
    };
    for (const auto& c : good) {
        QString error;
        const auto request = SayRequest::parse(c.words, &error);
        ASSERT_TRUE(request) << c.words << ": " << error.toStdString();
        EXPECT_EQ(QStringList({request->text, request->voice, request->clone}), c.parts);
    }
    for (const char* words : {"--voice Old Lady", "Hi --clone", "Hi --voice Old Lady --clone Me"}) {
        QString error;
        EXPECT_FALSE(SayRequest::parse(words, &error)) << words;
        EXPECT_TRUE(error.endsWith('.')) << words;
    }
}
