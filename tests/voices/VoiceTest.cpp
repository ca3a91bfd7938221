#include "voices/Voice.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using namespace parlova;

namespace {
QJsonObject objectOf(const Voice& v) { return QJsonDocument::fromJson(v.toJson()).object(); }
}  // namespace

TEST(Voice, StartingVoicesCarryTheFactoryTunings) {
    const auto& voices = Voice::builtIns();
    ASSERT_EQ(voices.size(), 2u);
    const Voice& lady = voices[0];
    const Voice& man = voices[1];
    EXPECT_EQ(lady.name, "Old Lady");
    EXPECT_EQ(lady.emoji, QString::fromUtf8("\U0001F475"));
    EXPECT_EQ(lady.presetKey, QString("oldLady"));
    EXPECT_EQ(lady.pitch, 650.0f);
    EXPECT_EQ(lady.formant, 3.5f);
    EXPECT_EQ(lady.tremoloDepth, 0.12f);
    EXPECT_EQ(lady.grain, 0.15f);
    EXPECT_EQ(man.name, "Middle-Aged Man");
    EXPECT_EQ(man.pitch, -400.0f);
    EXPECT_EQ(man.targetPitch, 108.0f);
    EXPECT_EQ(man.body, 4.0f);
    EXPECT_NE(lady.id, man.id);

    const Voice& natural = Voice::natural();
    EXPECT_FALSE(natural.presetKey.has_value());
    EXPECT_EQ(natural.lowCut, 20.0f);
    EXPECT_EQ(natural.highCut, 20000.0f);
    EXPECT_EQ(natural.gain, 0.0f);
    EXPECT_EQ(natural.vibratoDepth, 0.0f);
}

TEST(Voice, FactoryLooksUpByPresetKeyOnly) {
    auto lady = Voice::factory("oldLady");
    ASSERT_TRUE(lady.has_value());
    EXPECT_EQ(*lady, Voice::builtIns()[0]);  // same id too
    EXPECT_FALSE(Voice::factory("natural").has_value());
    EXPECT_FALSE(Voice::factory("").has_value());
}

TEST(Voice, EqualityAndHashCoverEveryFieldWithSignedZeroHashedAlike) {
    Voice a = Voice::builtIns()[0];
    Voice b = a;
    EXPECT_EQ(a, b);
    b.id = QUuid::createUuid();
    EXPECT_NE(a, b);

    Voice zero = a, negativeZero = a;
    zero.body = 0.0f;
    negativeZero.body = -0.0f;
    EXPECT_EQ(std::hash<Voice>{}(zero), std::hash<Voice>{}(negativeZero));
}

TEST(Voice, JsonKeepsFieldOrderAndRoundTrips) {
    const Voice lady = Voice::builtIns()[0];
    const QByteArray json = lady.toJson();
    EXPECT_TRUE(json.startsWith("{\"id\":\""));
    EXPECT_LT(json.indexOf("\"presetKey\""), json.indexOf("\"pitch\""));
    EXPECT_LT(json.indexOf("\"gain\""), json.indexOf("\"grain\""));
    EXPECT_NE(json.indexOf("\"tremoloDepth\":0.12,"), -1) << json.constData();
    EXPECT_NE(json.indexOf("\"pitch\":650,"), -1);
    auto back = Voice::fromJson(objectOf(lady));
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(*back, lady);

    const QByteArray natural = Voice::natural().toJson();
    EXPECT_EQ(natural.indexOf("presetKey"), -1);
}

TEST(Voice, DecodingRequiresEveryFieldButPresetKey) {
    QJsonObject user = objectOf(Voice::builtIns()[1]);
    user.remove("presetKey");
    auto decoded = Voice::fromJson(user);
    ASSERT_TRUE(decoded.has_value());
    EXPECT_FALSE(decoded->presetKey.has_value());

    user.insert("somethingNew", 3);  // unknown keys are ignored
    EXPECT_TRUE(Voice::fromJson(user).has_value());

    for (const char* key : {"id", "name", "emoji", "grain", "pitch"}) {
        QJsonObject broken = user;
        broken.remove(key);
        EXPECT_FALSE(Voice::fromJson(broken).has_value()) << key;
    }
    QJsonObject mistyped = user;
    mistyped.insert("gain", "loud");
    EXPECT_FALSE(Voice::fromJson(mistyped).has_value());
    mistyped = user;
    mistyped.insert("id", "not-a-uuid");
    EXPECT_FALSE(Voice::fromJson(mistyped).has_value());
}
