// A voice's identity. Its JSON form is checked where it is met: the settings
// file (VoiceStoreTest) and the command line's export and import (CliTest).
#include "voices/Voice.h"

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
