#include "voices/Voice.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using namespace parlova;

TEST(Voice, FactoryLooksUpByPresetKeyOnlyAndEqualityCoversTheId) {
    EXPECT_EQ(Voice::factory("oldLady"), std::optional<Voice>(Voice::builtIns()[0]));  // same id too
    EXPECT_FALSE(Voice::factory("natural").has_value());
    EXPECT_FALSE(Voice::factory("").has_value());
    Voice other = Voice::builtIns()[0];
    other.id = QUuid::createUuid();
    EXPECT_NE(other, Voice::builtIns()[0]);
    // Signed zeros compare equal, so they hash alike.
    Voice zero = other, negativeZero = other;
    zero.body = 0.0f;
    negativeZero.body = -0.0f;
    EXPECT_EQ(std::hash<Voice>{}(zero), std::hash<Voice>{}(negativeZero));
}

TEST(Voice, JsonRoundTrips) {
    const Voice lady = Voice::builtIns()[0];
    const QByteArray json = lady.toJson();
    EXPECT_EQ(Voice::fromJson(QJsonDocument::fromJson(json).object()), std::optional<Voice>(lady));
    EXPECT_EQ(Voice::natural().toJson().indexOf("presetKey"), -1);
}

TEST(Voice, DecodingRequiresEveryFieldButPresetKeyWithItsType) {
    QJsonObject user = QJsonDocument::fromJson(Voice::builtIns()[1].toJson()).object();
    user.remove("presetKey");
    user.insert("somethingNew", 3);  // unknown keys are ignored
    auto decoded = Voice::fromJson(user);
    ASSERT_TRUE(decoded.has_value());
    EXPECT_FALSE(decoded->presetKey.has_value());
    const std::pair<const char*, QJsonValue> broken[] = {
        {"id", QJsonValue::Undefined}, {"name", QJsonValue::Undefined}, {"emoji", QJsonValue::Undefined},
        {"grain", QJsonValue::Undefined}, {"pitch", QJsonValue::Undefined}, {"gain", "loud"}, {"id", "not-a-uuid"}};
    for (const auto& [key, value] : broken) {
        QJsonObject object = user;
        value.isUndefined() ? object.remove(key) : void(object.insert(key, value));
        EXPECT_FALSE(Voice::fromJson(object).has_value()) << key;
    }
}
