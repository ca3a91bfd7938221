// The soundboard's store on a private folder: what one store writes another
// reads, damaged files are kept aside, a file that isn't sound changes
// nothing, and a store notices another process's edits.
#include "board/BoardStore.h"
#include "common/VoiceEngineError.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;
using parlova::testpulse::waitUntil;

namespace {

class BoardStoreTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString folder = dir.filePath("support/Board");

    // A stereo tone at 44.1 kHz, so the store's measure goes through a rate change.
    QString wav(const QString& name, double seconds) {
        const QString path = dir.filePath(name);
        const auto frames = static_cast<size_t>(seconds * 44100);
        testaudio::Audio audio = testaudio::spread(testaudio::tone(330, 44100, frames, 0.3f), 44100, 2);
        EXPECT_TRUE(testaudio::writeWav(path.toStdString(), audio, 16));
        return path;
    }
    QByteArray boardFile() {
        QFile file(QDir(folder).filePath(BoardStore::kFileName));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    void writeBoardFile(const QByteArray& bytes) {
        QDir().mkpath(folder);
        QFile file(QDir(folder).filePath(BoardStore::kFileName));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    QStringList clips() { return QDir(folder).entryList({"clip-*"}, QDir::Files); }
};

}  // namespace

TEST_F(BoardStoreTest, EntriesSurviveInASecondStoreAndRemovingDeletesTheCopy) {
    const QString text = "Sorry, I lost you for a moment there, could you say that again?";
    const QUuid voice = QUuid::createUuid(), clone = QUuid::createUuid();
    BoardEntry clip, spoken, cloned;
    {
        BoardStore store(folder);
        EXPECT_TRUE(store.entries().isEmpty());
        clip = store.addClip(wav("applause.wav", 1.5));
        spoken = store.addSpeech(text, voice);
        cloned = store.addSpeech("  Hi!  ", {}, clone, "  Greeting  ");
        EXPECT_TRUE(store.saveError().isEmpty()) << store.saveError().toStdString();

        EXPECT_EQ(clip.name, "applause");
        EXPECT_NEAR(clip.clipSeconds, 1.5, 0.01);
        EXPECT_TRUE(clip.clipFile.startsWith("clip-") && clip.clipFile.endsWith(".wav")) << clip.clipFile.toStdString();
        EXPECT_TRUE(QFile::exists(store.clipPath(clip)));
        // A sentence is named after its start, shorter than itself.
        EXPECT_TRUE(text.startsWith(spoken.name.chopped(1))) << spoken.name.toStdString();
        EXPECT_LT(spoken.name.size(), text.size());
        EXPECT_EQ(cloned.name, "Greeting");
        EXPECT_EQ(cloned.text, "Hi!");
        EXPECT_EQ((QStringList{clip.key, spoken.key, cloned.key}), (QStringList{"1", "2", "3"}));

        // A second clip from a file of the same name gets a name of its own.
        EXPECT_EQ(store.addClip(wav("applause.wav", 0.5)).name, "applause 2");
        store.rename(clip.id, "  Cheers ");
        store.rename(spoken.id, "   ");  // a blank name keeps the old one
        store.move(cloned.id, 0);
        BoardEntry louder = *store.entry(spoken.id);
        louder.levelDb = -3;
        louder.duckDb = 0;
        louder.key = "9";
        store.update(louder);
        EXPECT_THROW(store.addSpeech(" \n "), VoiceEngineError);
    }
    BoardStore reloaded(folder);
    ASSERT_EQ(reloaded.entries().size(), 4);
    EXPECT_EQ(reloaded.entries()[0], cloned);
    EXPECT_EQ(reloaded.entries()[1].name, "Cheers");
    EXPECT_EQ(reloaded.entries()[1].clipFile, clip.clipFile);
    const BoardEntry second = reloaded.entries()[2];
    EXPECT_EQ(second.name, spoken.name);
    EXPECT_EQ(second.voiceID, voice);
    EXPECT_EQ(second.text, text);
    EXPECT_EQ(second.levelDb, -3);
    EXPECT_EQ(second.duckDb, 0);
    EXPECT_EQ(second.key, "9");
    EXPECT_EQ(reloaded.find("CHEERS")->id, clip.id);
    // The freed key "2" is the next one given.
    EXPECT_EQ(reloaded.addSpeech("Next").key, "2");

    const QString copy = reloaded.clipPath(*reloaded.find("Cheers"));
    reloaded.remove(clip.id);
    EXPECT_FALSE(QFile::exists(copy));
    EXPECT_FALSE(reloaded.find("Cheers"));
    EXPECT_EQ(clips().size(), 1);  // the other clip's copy stays
}

TEST_F(BoardStoreTest, DamagedFilesAreKeptAsideAndTheBoardStartsEmpty) {
    const QByteArray cases[] = {
        "{not json",
        R"({"entries":[{"name":"no id","kind":"speech","text":"Hi"}]})",
        R"({"entries":[{"id":"6c7f2a10-3f43-4e49-9d7e-0c6f5a7f0b11","kind":"clip","name":"no file"}]})",
        R"({"entries":[{"id":"6c7f2a10-3f43-4e49-9d7e-0c6f5a7f0b11","kind":"clip","file":"../../settings.ini"}]})",
        R"([])",
    };
    for (const QByteArray& bytes : cases) {
        writeBoardFile(bytes);
        BoardStore store(folder);
        EXPECT_TRUE(store.entries().isEmpty()) << bytes.constData();
        QFile aside(store.keptAsidePath());
        ASSERT_TRUE(aside.open(QIODevice::ReadOnly)) << bytes.constData();
        EXPECT_EQ(aside.readAll(), bytes);
        store.addSpeech("Fresh");  // a new board.json, the damaged one untouched
        EXPECT_TRUE(boardFile().contains("Fresh"));
    }
    EXPECT_EQ(QDir(folder).entryList({"board-unreadable-*.json"}).size(), 5);

    // Optional fields may be missing: the entry takes their defaults.
    writeBoardFile(R"({"entries":[{"id":"6c7f2a10-3f43-4e49-9d7e-0c6f5a7f0b11","kind":"speech","text":"Hello"}]})");
    BoardStore sparse(folder);
    EXPECT_TRUE(sparse.keptAsidePath().isEmpty());
    ASSERT_EQ(sparse.entries().size(), 1);
    EXPECT_EQ(sparse.entries()[0].name, "Hello");
    EXPECT_EQ(sparse.entries()[0].duckDb, BoardEntry{}.duckDb);
}

TEST_F(BoardStoreTest, AClipThatIsNotSoundLeavesTheBoardAsItWas) {
    BoardStore store(folder);
    store.addSpeech("Already here");
    const QByteArray before = boardFile();
    const QString text = dir.filePath("notes.wav");
    QFile file(text);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("these are words, not sound");
    file.close();
    for (const QString& path : {text, dir.filePath("missing.wav")}) {
        try {
            store.addClip(path);
            ADD_FAILURE() << "accepted " << path.toStdString();
        } catch (const VoiceEngineError& error) {
            const std::string sentence = error.errorDescription();
            EXPECT_EQ(sentence.back(), '.') << sentence;
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
    // Each rewrite replaces the file: the store keeps watching the new one.
    cli.rename(added.id, "Horn blast");
    EXPECT_TRUE(waitUntil([&] { return window.find("Horn blast").has_value(); }, 5000));
    cli.remove(added.id);
    EXPECT_TRUE(waitUntil([&] { return window.entries().isEmpty(); }, 5000));
    EXPECT_GE(changes, 3);
    // The window's own edits reach the other store the same way, and its own
    // save doesn't reload it.
    const int before = changes;
    window.addSpeech("From the window");
    EXPECT_TRUE(waitUntil([&] { return cli.entries().size() == 1; }, 5000));
    testpulse::pump(200);
    EXPECT_EQ(changes, before + 1);
}
