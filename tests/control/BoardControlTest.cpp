// The control words of the soundboard: refused with a sentence without a
// board or for a sound it doesn't have, and "say" taken apart into its text
// and the voice that says it.
#include "board/BoardStore.h"
#include "board/Soundboard.h"
#include "control/ControlCommands.h"
#include "control/VoiceSelection.h"
#include "engine/VoiceEngine.h"
#include "voices/VoiceStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;

namespace {

struct Channel {
    QTemporaryDir dir;
    QSettings settings{dir.filePath("settings.ini"), QSettings::IniFormat};
    BackendJobs jobs;
    VoiceEngine engine{&settings, nullptr, jobs};
    VoiceStore store{&settings};
    VoiceSelection selection{engine, store};
    ControlCommands commands{engine, selection};
};

}  // namespace

TEST(BoardControl, WithoutABoardOrAnEntryTheWordsAreRefusedWithASentence) {
    Channel c;
    for (const char* request : {"board play Applause", "board stop", "say Hello there"}) {
        const ControlReply reply = c.commands.runLine(request);
        EXPECT_FALSE(reply.ok) << request;
        EXPECT_TRUE(reply.message.startsWith("This Parlova has no soundboard")) << reply.message.toStdString();
        EXPECT_FALSE(c.commands.status().contains("board"));
    }

    BoardStore store(c.dir.filePath("Board"));
    store.addSpeech("Right back", {}, {}, "Back Soon");
    Soundboard board(store, c.engine, c.store, nullptr);
    c.commands.setBoard(&store, &board);
    const struct {
        const char* request;
        const char* says;
    } cases[] = {
        {"board play Nothing Here", "There is no sound named \u201cNothing Here\u201d on the board."},
        {"board key 9", "No sound of the board is on the key \u201c9\u201d."},
        {"board", "\u201cboard\u201d needs play and a sound's name, key and its key, or stop."},
        {"board play", "\u201cboard\u201d needs play and a sound's name, key and its key, or stop."},
        {"board stop now", "\u201cboard\u201d needs play and a sound's name, key and its key, or stop."},
        {"say Hi --voice Nobody", "There is no voice named \u201cNobody\u201d."},
        {"say Hi --clone Old Lady", "\u201cOld Lady\u201d is an effect voice; say it with --voice."},
    };
    for (const auto& test : cases) {
        const ControlReply reply = c.commands.runLine(test.request);
        EXPECT_FALSE(reply.ok) << test.request;
        EXPECT_EQ(reply.message, QString::fromUtf8(test.says)) << test.request;
    }
    EXPECT_TRUE(c.commands.runLine("board stop").ok);
    const QJsonObject status = c.commands.status();
    EXPECT_EQ(status.value("board").toObject().value("sounds").toInt(), 1);
    EXPECT_TRUE(c.commands.runLine("status").message.contains("Board: 1 sound"));
}

TEST(BoardControl, SayTakesTheTextThenOneVoiceNamedByTheRestOfTheLine) {
    const struct {
        const char* words;
        const char* text;
        const char* voice;
        const char* clone;
    } good[] = {
        {"Hello there", "Hello there", "", ""},
        {"I'll be right back --voice Old Lady", "I'll be right back", "Old Lady", ""},
        {"  Lunch?   --clone   My Voice  ", "Lunch?", "", "My Voice"},
        {"Use --voiced consonants", "Use --voiced consonants", "", ""},
    };
    for (const auto& c : good) {
        QString error;
        const auto request = SayRequest::parse(c.words, &error);
        ASSERT_TRUE(request) << c.words << ": " << error.toStdString();
        EXPECT_EQ(request->text, c.text);
        EXPECT_EQ(request->voice, c.voice);
        EXPECT_EQ(request->clone, c.clone);
    }
    const struct {
        const char* words;
        const char* says;
    } bad[] = {
        {"", "\u201csay\u201d needs the text to say"},
        {"--voice Old Lady", "\u201csay\u201d needs the text to say"},
        {"Hi --clone", "--clone needs the name of a voice."},
        {"Hi --voice Old Lady --clone Me", "Choose one voice to say it: --voice NAME or --clone NAME, not both."},
    };
    for (const auto& c : bad) {
        QString error;
        EXPECT_FALSE(SayRequest::parse(c.words, &error)) << c.words;
        EXPECT_TRUE(error.startsWith(QString::fromUtf8(c.says))) << c.words << ": " << error.toStdString();
    }
}
