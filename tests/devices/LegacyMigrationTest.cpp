// The one-time migration from the former application's name, on settings files
// and folders inside a temporary folder.
#include "devices/LegacyMigration.h"
#include "support/Files.h"

#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using parlova::LegacyMigration;
using parlova::testfiles::write;

namespace {

class LegacyMigrationTest : public ::testing::Test {
protected:
    QTemporaryDir root;
    QSettings current{root.filePath("config/Parlova.ini"), QSettings::IniFormat};
    QSettings former{root.filePath("config/Tovix.ini"), QSettings::IniFormat};
    const QString support = root.filePath("share/Parlova"), formerSupport = root.filePath("share/TovixVoiceChanger");
    const QByteArray oldPath = formerSupport.toUtf8(), newPath = support.toUtf8();
    static constexpr const char* kLib = "/voice-lab/.venv/lib/python3.11/site-packages";

    void migrate() {
        former.sync();
        LegacyMigration::run(current, former, support, LegacyMigration::labDirectory(support));
    }
    static QByteArray read(const QString& path) { return parlova::testfiles::read(path, "<missing>"); }
};

}  // namespace

TEST_F(LegacyMigrationTest, KeysAreCopiedWhereAbsentAndTheFolderMovesWithItsPathsRepaired) {
    former.setValue("voices.v5", R"([{"name":"Granny","pitch":300}])");
    former.setValue("inputDeviceUID", "old_mic");
    former.setValue("outputDeviceUID", "old_headphones");
    former.setValue("window/width", 912);  // any key, whatever its name
    current.setValue("inputDeviceUID", "new_mic");
    const QString lib = kLib;
    // Path records under .venv/lib are rewritten; other files, and text that is not UTF-8, are kept as they are.
    const struct { QString file; QByteArray before, after; } files[] = {
        {"/ClonedVoices/library.json", "[]", "[]"},
        {lib + "/_lab.pth", oldPath + "/voice-lab/src\n" + oldPath + "/voice-lab/extra\n",
         newPath + "/voice-lab/src\n" + newPath + "/voice-lab/extra\n"},
        {lib + "/lab-0.1.dist-info/direct_url.json", R"({"url": "file://)" + oldPath + R"(/voice-lab"})",
         R"({"url": "file://)" + newPath + R"(/voice-lab"})"},
        {lib + "/plain.pth", "import site\n", "import site\n"},
        {lib + "/notes.txt", oldPath, oldPath},
        {lib + "/latin1.pth", oldPath + "/caf\xe9\n", oldPath + "/caf\xe9\n"},
        {"/voice-lab/direct_url.json", oldPath, oldPath},
    };
    for (const auto& f : files) write(formerSupport + f.file, f.before);

    migrate();
    EXPECT_EQ(current.value("voices.v5").toString(), R"([{"name":"Granny","pitch":300}])");
    EXPECT_EQ(current.value("inputDeviceUID").toString(), "new_mic");
    EXPECT_EQ(current.value("outputDeviceUID").toString(), "old_headphones");
    EXPECT_EQ(current.value("window/width").toInt(), 912);
    EXPECT_EQ(former.value("inputDeviceUID").toString(), "old_mic");  // only read
    EXPECT_FALSE(QFileInfo::exists(formerSupport));
    for (const auto& f : files) EXPECT_EQ(read(support + f.file), f.after) << f.file.toStdString();
    EXPECT_TRUE(current.value(LegacyMigration::kFlagKey).toBool());
}

TEST_F(LegacyMigrationTest, AnExistingNewFolderIsNeverReplacedOrMergedInto) {
    write(formerSupport + "/ClonedVoices/library.json", "[\"old\"]");
    write(formerSupport + kLib + "/_lab.pth", oldPath + "\n");
    write(support + "/ClonedVoices/library.json", "[\"new\"]");
    write(support + kLib + "/_lab.pth", oldPath + "\n");

    migrate();
    EXPECT_EQ(read(formerSupport + "/ClonedVoices/library.json"), "[\"old\"]");
    EXPECT_EQ(read(support + "/ClonedVoices/library.json"), "[\"new\"]");
    EXPECT_EQ(read(support + kLib + "/_lab.pth"), oldPath + "\n");  // nothing rewritten without a move
    EXPECT_TRUE(current.value(LegacyMigration::kFlagKey).toBool());
}

TEST_F(LegacyMigrationTest, OnlyTheFirstStartMigratesEvenWhenTheFormerDataAppearsLater) {
    migrate();
    EXPECT_EQ(current.allKeys(), QStringList{LegacyMigration::kFlagKey});
    EXPECT_FALSE(QFileInfo::exists(support));
    EXPECT_TRUE(QSettings(root.filePath("config/Parlova.ini"), QSettings::IniFormat)
                    .value(LegacyMigration::kFlagKey).toBool());  // on disk, not only in memory

    former.setValue("inputDeviceUID", "old_mic");
    write(formerSupport + "/ClonedVoices/library.json", "[2]");
    migrate();
    EXPECT_EQ(current.allKeys(), QStringList{LegacyMigration::kFlagKey});
    EXPECT_FALSE(QFileInfo::exists(support));
    EXPECT_EQ(read(formerSupport + "/ClonedVoices/library.json"), "[2]");
}
