// The one-time migration from the former application's name, on settings files
// and folders inside a temporary folder.
#include "devices/LegacyMigration.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

using parlova::LegacyMigration;

namespace {

class LegacyMigrationTest : public ::testing::Test {
protected:
    QTemporaryDir root;
    std::unique_ptr<QSettings> current, former;
    QString support, formerSupport;

    void SetUp() override {
        ASSERT_TRUE(root.isValid());
        current = std::make_unique<QSettings>(root.filePath("config/Parlova.ini"), QSettings::IniFormat);
        former = std::make_unique<QSettings>(root.filePath("config/Tovix.ini"), QSettings::IniFormat);
        support = root.filePath("share/Parlova");
        formerSupport = root.filePath("share/TovixVoiceChanger");
        QDir().mkpath(root.filePath("share"));
    }

    void migrate() { LegacyMigration::run(*current, *former, support, LegacyMigration::labDirectory(support)); }

    static void write(const QString& path, const QByteArray& bytes) {
        QDir().mkpath(QFileInfo(path).path());
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }
    static QByteArray read(const QString& path) {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
    }
    QString formerLib() const { return formerSupport + "/voice-lab/.venv/lib/python3.11/site-packages"; }
    QString newLib() const { return support + "/voice-lab/.venv/lib/python3.11/site-packages"; }
};

}  // namespace

TEST(LegacyMigrationPaths, FormerFolderIsTheSiblingAndTheLabLivesInsideTheSupportFolder) {
    EXPECT_EQ(LegacyMigration::formerSupportDirectory("/home/u/.local/share/Parlova"),
              "/home/u/.local/share/TovixVoiceChanger");
    EXPECT_EQ(LegacyMigration::formerSupportDirectory("/home/u/.local/share/Parlova/"),
              "/home/u/.local/share/TovixVoiceChanger");
    EXPECT_EQ(LegacyMigration::labDirectory("/d/Parlova"), "/d/Parlova/voice-lab");
    EXPECT_TRUE(LegacyMigration::supportDirectory().endsWith("/Parlova"));
}

TEST_F(LegacyMigrationTest, AUserWithoutTheFormerAppOnlyGetsTheFlag) {
    migrate();
    EXPECT_TRUE(current->value(LegacyMigration::kFlagKey).toBool());
    EXPECT_EQ(current->allKeys(), QStringList{LegacyMigration::kFlagKey});
    EXPECT_FALSE(QFileInfo::exists(support));
    // The flag is on disk, not only in memory.
    QSettings reread(root.filePath("config/Parlova.ini"), QSettings::IniFormat);
    EXPECT_TRUE(reread.value(LegacyMigration::kFlagKey).toBool());
}

TEST_F(LegacyMigrationTest, EveryAbsentKeyIsCopiedAndExistingKeysKeepTheirValues) {
    const QByteArray voices = R"([{"name":"Granny","pitch":300}])";
    former->setValue("voices.v5", voices);
    former->setValue("inputDeviceUID", "old_mic");
    former->setValue("outputDeviceUID", "old_headphones");
    former->setValue("clonePlayWhenReady", false);
    former->setValue("window/width", 912);  // any key, whatever its name
    former->sync();
    current->setValue("inputDeviceUID", "new_mic");
    current->setValue("cloneModel", "best");

    migrate();
    EXPECT_EQ(current->value("voices.v5").toByteArray(), voices);
    EXPECT_EQ(current->value("inputDeviceUID").toString(), "new_mic");
    EXPECT_EQ(current->value("outputDeviceUID").toString(), "old_headphones");
    EXPECT_FALSE(current->value("clonePlayWhenReady", true).toBool());
    EXPECT_EQ(current->value("window/width").toInt(), 912);
    EXPECT_EQ(current->value("cloneModel").toString(), "best");
    // The former settings are only read.
    EXPECT_EQ(former->value("inputDeviceUID").toString(), "old_mic");
}

TEST_F(LegacyMigrationTest, TheFormerFolderMovesAndTheEnvironmentPathsAreRepaired) {
    const QByteArray oldPath = formerSupport.toUtf8(), newPath = support.toUtf8();
    write(formerSupport + "/ClonedVoices/library.json", "[]");
    write(formerLib() + "/_lab.pth", oldPath + "/voice-lab/src\n" + oldPath + "/voice-lab/extra\n");
    write(formerLib() + "/lab-0.1.dist-info/direct_url.json",
          R"({"url": "file://)" + oldPath + R"(/voice-lab", "dir_info": {"editable": true}})");
    write(formerLib() + "/plain.pth", "import site\n");
    write(formerLib() + "/notes.txt", oldPath);                     // not a path record
    write(formerLib() + "/latin1.pth", oldPath + "/caf\xe9\n");    // not UTF-8 text
    write(formerSupport + "/voice-lab/direct_url.json", oldPath);  // outside .venv/lib

    migrate();
    EXPECT_FALSE(QFileInfo::exists(formerSupport));
    EXPECT_EQ(read(support + "/ClonedVoices/library.json"), "[]");
    EXPECT_EQ(read(newLib() + "/_lab.pth"), newPath + "/voice-lab/src\n" + newPath + "/voice-lab/extra\n");
    EXPECT_EQ(read(newLib() + "/lab-0.1.dist-info/direct_url.json"),
              R"({"url": "file://)" + newPath + R"(/voice-lab", "dir_info": {"editable": true}})");
    EXPECT_EQ(read(newLib() + "/plain.pth"), "import site\n");
    EXPECT_EQ(read(newLib() + "/notes.txt"), oldPath);
    EXPECT_EQ(read(newLib() + "/latin1.pth"), oldPath + "/caf\xe9\n");
    EXPECT_EQ(read(support + "/voice-lab/direct_url.json"), oldPath);
    EXPECT_TRUE(current->value(LegacyMigration::kFlagKey).toBool());
}

TEST_F(LegacyMigrationTest, AnExistingNewFolderIsNeverReplacedOrMergedInto) {
    const QByteArray oldPath = formerSupport.toUtf8();
    write(formerSupport + "/ClonedVoices/library.json", "[\"old\"]");
    write(formerLib() + "/_lab.pth", oldPath + "\n");
    write(support + "/ClonedVoices/library.json", "[\"new\"]");
    write(newLib() + "/_lab.pth", oldPath + "\n");

    migrate();
    EXPECT_EQ(read(formerSupport + "/ClonedVoices/library.json"), "[\"old\"]");
    EXPECT_EQ(read(support + "/ClonedVoices/library.json"), "[\"new\"]");
    EXPECT_EQ(read(formerLib() + "/_lab.pth"), oldPath + "\n");
    EXPECT_EQ(read(newLib() + "/_lab.pth"), oldPath + "\n");  // nothing rewritten without a move
    EXPECT_TRUE(current->value(LegacyMigration::kFlagKey).toBool());
}

TEST_F(LegacyMigrationTest, ASecondStartDoesNothingEvenWhenTheFormerDataReappears) {
    former->setValue("outputDeviceUID", "old_headphones");
    former->sync();
    write(formerSupport + "/ClonedVoices/library.json", "[1]");
    migrate();
    ASSERT_TRUE(QFileInfo::exists(support + "/ClonedVoices/library.json"));

    // The user removes Parlova's folder and a key; the former app's data comes back.
    QDir(support).removeRecursively();
    current->remove("outputDeviceUID");
    former->setValue("inputDeviceUID", "old_mic");
    former->sync();
    write(formerSupport + "/ClonedVoices/library.json", "[2]");

    migrate();
    EXPECT_FALSE(current->contains("outputDeviceUID"));
    EXPECT_FALSE(current->contains("inputDeviceUID"));
    EXPECT_FALSE(QFileInfo::exists(support));
    EXPECT_EQ(read(formerSupport + "/ClonedVoices/library.json"), "[2]");
}
