// The soundboard's store on a private folder: what one store writes another
// reads, damaged files are kept aside, a file that isn't sound changes
// nothing, and a store notices another process's edits.
#include "board/BoardStore.h"
#include "common/VoiceEngineError.h"
#include "support/Files.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;
using parlova::testpulse::waitUntil;

namespace {

class BoardStoreTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString folder = dir.filePath("Board");

    // A stereo tone at 44.1 kHz, so measuring it goes through a rate change.
    QString wav(const QString& name, double seconds) {
        const QString path = dir.filePath(name);
        const auto tone = testaudio::tone(330, 44100, static_cast<size_t>(seconds * 44100), 0.3f);
        EXPECT_TRUE(testaudio::writeWav(path.toStdString(), testaudio::spread(tone, 44100, 2), 16));
        return path;
    }
    QString boardPath() { return QDir(folder).filePath(BoardStore::kFileName); }
    QByteArray boardFile() { return testfiles::read(boardPath()); }
    QStringList clips() { return QDir(folder).entryList({"clip-*"}, QDir::Files); }
};

}  // namespace

TEST_F(BoardStoreTest, EntriesSurviveInASecondStoreAndRemovingDeletesTheCopy) {
    const QString text = "Sorry, I lost you for a moment there, could you say that again?";
    const QUuid voice = QUuid::createUuid();
    BoardEntry clip, spoken;
    {
        BoardStore store(folder);
        clip = store.addClip(wav("applause.wav", 1.5));
        spoken = store.addSpeech(text, voice);
        EXPECT_EQ(clip.name, "applause");
        EXPECT_NEAR(clip.clipSeconds, 1.5, 0.01);
        EXPECT_TRUE(QFile::exists(store.clipPath(clip)));
        // A sentence is named after its start.
        EXPECT_TRUE(text.startsWith(spoken.name.chopped(1))) << spoken.name.toStdString();
        EXPECT_EQ(clip.key + spoken.key, "12");
        EXPECT_EQ(store.addClip(wav("applause.wav", 0.5), "  ").name, "applause 2");
        store.rename(clip.id, "  Cheers ");
        store.move(spoken.id, 0);
        EXPECT_THROW(store.addSpeech(" \n "), VoiceEngineError);
        EXPECT_TRUE(store.saveError().isEmpty());
    }
    BoardStore reloaded(folder);
    ASSERT_EQ(reloaded.entries().size(), 3);
    EXPECT_EQ(reloaded.entries()[0], spoken);  // with the voice that says it
    EXPECT_EQ(reloaded.find("CHEERS")->clipFile, clip.clipFile);

    const QString copy = reloaded.clipPath(*reloaded.find("Cheers"));
    reloaded.remove(clip.id);
    EXPECT_FALSE(QFile::exists(copy));
    EXPECT_EQ(clips().size(), 1);  // the other clip's copy stays
    EXPECT_EQ(reloaded.addSpeech("Next").key, "1");  // the key freed is given again
}

TEST_F(BoardStoreTest, DamagedFilesAreKeptAsideAndTheBoardStartsEmpty) {
    const QByteArray cases[] = {
        "{not json",
        R"({"entries":[{"name":"no id","kind":"speech","text":"Hi"}]})",
        R"({"entries":[{"id":"6c7f2a10-3f43-4e49-9d7e-0c6f5a7f0b11","kind":"clip","name":"no file"}]})",
        R"({"entries":[{"id":"6c7f2a10-3f43-4e49-9d7e-0c6f5a7f0b11","kind":"clip","file":"../settings.ini"}]})",
    };
    for (const QByteArray& bytes : cases) {
        ASSERT_TRUE(testfiles::write(boardPath(), bytes));
        BoardStore store(folder);
        EXPECT_TRUE(store.entries().isEmpty()) << bytes.constData();
        EXPECT_EQ(testfiles::read(store.keptAsidePath()), bytes);
        store.addSpeech("Fresh");  // a new board.json, the damaged one untouched
        EXPECT_TRUE(boardFile().contains("Fresh"));
    }
    EXPECT_EQ(QDir(folder).entryList({"board-unreadable-*.json"}).size(), 4);

    // Optional fields may be missing: the entry takes their defaults.
    testfiles::write(boardPath(), R"({"entries":[{"id":"6c7f2a10-3f43-4e49-9d7e-0c6f5a7f0b11","kind":"speech","text":"Hello"}]})");
    BoardStore sparse(folder);
    ASSERT_EQ(sparse.entries().size(), 1);
    EXPECT_EQ(sparse.entries()[0].name, "Hello");
}

TEST_F(BoardStoreTest, AClipThatIsNotSoundLeavesTheBoardAsItWas) {
    BoardStore store(folder);
    store.addSpeech("Already here");
    const QByteArray before = boardFile();
    ASSERT_TRUE(testfiles::write(dir.filePath("notes.wav"), "these are words, not sound"));
    for (const QString& path : {dir.filePath("notes.wav"), dir.filePath("missing.wav")}) {
        try {
            store.addClip(path);
            ADD_FAILURE() << "accepted " << path.toStdString();
        } catch (const VoiceEngineError& error) {
            EXPECT_EQ(error.errorDescription().back(), '.') << error.errorDescription();
        }
    }
    EXPECT_EQ(store.entries().size(), 1);
    EXPECT_EQ(boardFile(), before);
    EXPECT_TRUE(clips().isEmpty());
}

TEST_F(BoardStoreTest, AnotherStoreSeesTheChangesAfterTheFileIsRewritten) {
    BoardStore window(folder), cli(folder);
    int changes = 0;
    QObject::connect(&window, &BoardStore::entriesChanged, [&] { ++changes; });
    const BoardEntry added = cli.addClip(wav("horn.wav", 0.5));
    ASSERT_TRUE(waitUntil([&] { return window.entries().size() == 1; }, 5000));
    EXPECT_EQ(window.entries()[0], added);
    // Each save replaces the file: the store keeps watching the new one.
    cli.rename(added.id, "Air horn");
    EXPECT_TRUE(waitUntil([&] { return window.find("Air horn").has_value(); }, 5000));
    cli.remove(added.id);
    EXPECT_TRUE(waitUntil([&] { return window.entries().isEmpty(); }, 5000));
    EXPECT_EQ(changes, 3);
    // The window's own save reaches the other store and doesn't reload itself.
    window.addSpeech("From the window");
    EXPECT_TRUE(waitUntil([&] { return cli.entries().size() == 1; }, 5000));
    testpulse::pump(200);
    EXPECT_EQ(changes, 4);
}
