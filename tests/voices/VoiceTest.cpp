#include "voices/Voice.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using namespace parlova;

namespace {
QJsonObject objectOf(const Voice& v) { return QJsonDocument::fromJson(v.toJson()).object(); }
}  // namespace

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
