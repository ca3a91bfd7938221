// The local control channel: every command against a real engine and voice
// list (refused ones change nothing, the soundboard's words too where there is
// no board), "say" taken apart into its text and voice, and the socket itself:
// private to its user, answering a client over the wire. (Refusals with a
// board are checked over the socket in the board's CLI test.)
#include "control/ControlRig.h"
#include "control/ControlServer.h"
#include "support/PulseServer.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <future>

using namespace parlova;
using Channel = parlova::testcontrol::ControlRig;

TEST(ControlCommands, ApplyCommandsAndRefuseOthersWithoutChangingAnything) {
    Channel c;
    c.engine.talk().setMode(TalkMode::pushToTalk, false);
    const auto& voices = c.store.voices();
    ASSERT_GE(voices.size(), 2u);
    c.selection.selectVoice(voices[0].id);
    struct Case {
        const char* request;
        bool ok;
        std::function<bool(VoiceEngine&)> holds;
    };
    const Case cases[] = {
        {"ptt press", true, [](VoiceEngine& e) { return e.talk().isTalking() && e.talk().status() == "Talking"; }},
        {"ptt toggle", true, [](VoiceEngine& e) { return !e.talk().keyHeld(); }},
        {"bypass toggle", true, [](VoiceEngine& e) { return e.bypass(); }},
        {"bypass off", true, [](VoiceEngine& e) { return !e.bypass(); }},
        {"voice next", true, [&](VoiceEngine& e) { return e.voice().id == voices[1].id; }},
        {"voice prev", true, [&](VoiceEngine& e) { return e.voice().id == voices[0].id; }},
        {"voice prev", true, [&](VoiceEngine& e) { return e.voice().id == voices.back().id; }},
        {"voice natural", true, [](VoiceEngine& e) { return e.voice().id == Voice::natural().id; }},
        {"ptt hold", false, {}},
        {"ptt", false, {}},
        {"bypass maybe", false, {}},
        {"voice Nobody Here", false, {}},
        {"jump", false, {}},
        {"", false, {}},
        {"status --xml", false, {}},
        {"board play Applause", false, {}},
        {"board stop", false, {}},
        {"say Hello there", false, {}},
    };
    for (const Case& test : cases) {
        const QJsonObject before = c.commands.status();
        const ControlReply reply = c.commands.runLine(test.request);
        EXPECT_EQ(reply.ok, test.ok) << test.request;
        EXPECT_FALSE(reply.message.isEmpty()) << test.request;
        if (test.holds) {
            EXPECT_TRUE(test.holds(c.engine)) << test.request;
        } else {
            EXPECT_EQ(c.commands.status(), before) << test.request;
        }
        if (!test.ok) {
            EXPECT_TRUE(reply.message.endsWith('.')) << reply.message.toStdString();
        }
        if (QByteArray(test.request).startsWith("board") || QByteArray(test.request).startsWith("say")) {
            EXPECT_TRUE(reply.message.startsWith("This Parlova has no soundboard")) << reply.message.toStdString();
        }
    }
    EXPECT_FALSE(c.commands.status().contains("board"));
    const ControlReply status = c.commands.runLine("status --json");
    EXPECT_EQ(status.status.value("talkMode").toString(), "push-to-talk");
    EXPECT_EQ(status.status.value("talkStatus").toString(), "Push to talk: hold your push-to-talk shortcut");
}

TEST(ControlCommands, SayTakesTheTextThenOneVoiceNamedByTheRestOfTheLine) {
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

TEST(ControlChannel, AnswersItsOwnUserOverAPrivateSocket) {
    Channel c;
    ControlServer server(c.commands);
    const QString path = c.dir.filePath("control");
    QString error;
    ASSERT_TRUE(server.listen(&error, path)) << error.toStdString();
    struct stat info {};
    ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    // A second listener on the same path is refused while the first answers.
    ControlServer second(c.commands);
    EXPECT_FALSE(second.listen(&error, path));
    EXPECT_EQ(error, "Another Parlova is already listening for commands.");

    auto reply = std::async(std::launch::async, [&] { return sendControlRequest("bypass on", 3000, path); });
    ASSERT_TRUE(testpulse::waitUntil([&] { return reply.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
                                     5000));
    const ControlReply answer = reply.get();
    EXPECT_TRUE(answer.ok) << answer.message.toStdString();
    EXPECT_EQ(answer.message, "Natural voice is on.");
    EXPECT_TRUE(c.engine.bypass());

    const ControlReply nobody = sendControlRequest("status", 300, c.dir.filePath("nothing-here"));
    EXPECT_FALSE(nobody.ok);
    EXPECT_TRUE(nobody.message.startsWith("Parlova isn't listening for commands"));

    if (getuid() != 0) GTEST_SKIP() << "Connecting as another user needs root to switch users.";
    // Another user cannot connect, even with the folder open to everyone.
    ::chmod(QFile::encodeName(c.dir.path()).constData(), 0755);
    const pid_t child = fork();
    if (child == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) _exit(2);
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, QFile::encodeName(path).constData(), sizeof address.sun_path - 1);
        const bool refused = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 && errno == EACCES;
        _exit(refused ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}
