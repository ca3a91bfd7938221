// The worker's replies read with their defaults, and audio blocks encoded for
// its pipe. (Lines cut or joined by the reads are tried against a process in
// VoiceClonerTest.)
#include "cloning/WorkerProtocol.h"

#include <QJsonObject>

#include <gtest/gtest.h>

using namespace parlova;

TEST(WorkerProtocolTest, RepliesAndTheirDefaults) {
    struct Case {
        const char* line;
        const char* error;  // empty: a reply
        int samplesUsed;
    } cases[] = {
        {R"({"id":1,"ok":true,"output":"/a.wav","audio_seconds":2.5,"seconds":1})", "", 1},
        {R"({"id":1,"ok":true,"output":"","samples_used":3,"verified":false})", "", 3},
        {R"({"id":1,"ok":true})", "Voice cloning failed.", 0},
        {R"({"id":1,"ok":false,"error":"Too little audio."})", "Too little audio.", 0},
        {R"({"id":1,"ok":"yes","output":"x","error":7})", "Voice cloning failed.", 0},
    };
    for (const auto& c : cases) {
        const CloneResult result = resultFromLine(*parseLine(c.line));
        EXPECT_EQ(result.error, c.error) << c.line;
        if (result.ok()) {
            EXPECT_EQ(result.reply->samplesUsed, c.samplesUsed) << c.line;
        }
    }
    EXPECT_FALSE(parseLine("[1,2]"));
    EXPECT_FALSE(parseLine("garbage"));
    const float block[] = {0.25f, -1.0f, 3.5f};
    EXPECT_EQ(decodeSamples(encodeSamples(block, 3)), std::vector<float>(block, block + 3));
    EXPECT_EQ(decodeSamples(encodeSamples(block, 3).left(8)).size(), 1u);  // a partial sample is dropped
}
