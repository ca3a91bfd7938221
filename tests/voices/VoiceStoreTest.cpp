#include "voices/VoiceStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;

namespace {

class VoiceStoreTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QSettings settings{dir.filePath("settings.ini"), QSettings::IniFormat};
    QByteArray stored() { return QSettings(dir.filePath("settings.ini"), QSettings::IniFormat).value(VoiceStore::kSettingsKey).toByteArray(); }
};

}  // namespace

TEST_F(VoiceStoreTest, StartingVoicesStandInForMissingOrDamagedEntriesWithoutAWrite) {
    QByteArray missingGrain = encodeVoices(Voice::builtIns());
    missingGrain.replace(",\"grain\":0.15", "");
    for (const QByteArray& data : {QByteArray(), QByteArray("[]"), QByteArray("{not json"),
                                   QByteArray("\xff\xfe garbage"), missingGrain, QByteArray("[1,2]")}) {
        if (!data.isNull()) settings.setValue(VoiceStore::kSettingsKey, data);
        settings.sync();
        VoiceStore voices(&settings);
        ASSERT_EQ(voices.voices().size(), 2u) << data.constData();
        EXPECT_EQ(voices.voices()[0].name, "Old Lady");
        EXPECT_EQ(voices.voices()[1].name, "Middle-Aged Man");
        EXPECT_EQ(stored(), data);  // untouched, or still absent
    }
}

TEST_F(VoiceStoreTest, EveryChangeIsSavedAndReloadsWhole) {
    VoiceStore voices(&settings);
    auto list = voices.voices();
    list[0].name = "Granny";
    list[0].pitch = 500;
    list[1].body = -0.5f;
    voices.setVoices(list);
    QSettings again(dir.filePath("settings.ini"), QSettings::IniFormat);
    EXPECT_EQ(VoiceStore(&again).voices(), list);  // every field, the id and the preset key included
}

TEST_F(VoiceStoreTest, DuplicateInsertsAnEditableCopyAfterItsSource) {
    VoiceStore voices(&settings);
    const Voice lady = voices.voices()[0];
    const Voice copy = voices.duplicate(lady);
    EXPECT_EQ(copy.name, "Old Lady Copy");
    EXPECT_EQ(copy.emoji, QString::fromUtf8("\U0001F399\uFE0F"));
    EXPECT_FALSE(copy.presetKey.has_value());
    EXPECT_NE(copy.id, lady.id);
    EXPECT_EQ(copy.pitch, lady.pitch);
    ASSERT_EQ(voices.voices().size(), 3u);
    EXPECT_EQ(voices.voices()[1].id, copy.id);
    EXPECT_EQ(voices.duplicate(copy).name, "Old Lady Copy Copy");
    EXPECT_FALSE(stored().isEmpty());

    // The last voice, or one no longer in the list, is copied to the end.
    voices.duplicate(voices.voices().back());
    Voice stranger = lady;
    stranger.id = QUuid::createUuid();
    voices.duplicate(stranger);
    EXPECT_EQ(voices.voices().size(), 6u);
    EXPECT_EQ(voices.voices().back().name, "Old Lady Copy");
}

TEST_F(VoiceStoreTest, ResetAndDeleteFollowTheStartingVoiceRules) {
    VoiceStore voices(&settings);
    const Voice copy = voices.duplicate(voices.voices()[1]);
    settings.remove(VoiceStore::kSettingsKey);
    voices.remove(voices.voices()[0]);  // starting voice: nothing, no write
    voices.reset(copy);                 // user voice: nothing, no write
    EXPECT_EQ(voices.voices().size(), 3u);
    EXPECT_FALSE(settings.contains(VoiceStore::kSettingsKey));

    auto list = voices.voices();
    list[0].name = "Edited";
    list[0].formant = -7;
    voices.setVoices(list);
    voices.reset(voices.voices()[0]);
    EXPECT_EQ(voices.voices()[0].name, "Old Lady");
    EXPECT_EQ(voices.voices()[0].formant, 3.5f);
    EXPECT_EQ(voices.voices()[0].id, list[0].id);
    voices.remove(copy);
    ASSERT_EQ(voices.voices().size(), 2u);
    EXPECT_EQ(voices.voices()[1].name, "Middle-Aged Man");
}
