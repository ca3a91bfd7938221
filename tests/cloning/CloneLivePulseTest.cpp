// Live speech in a cloned voice on the private sound server, converted by the
// real worker's test voice, heard by another client recording the output.
#include "engine/CloneRoute.h"
#include "cloning/CloneWorkerSupport.h"
#include "devices/VirtualMic.h"
#include "engine/VoiceEngine.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;
using namespace parlova::testpulse;

TEST(CloneLivePulse, AnotherClientHearsTheConvertedVoice) {
    PARLOVA_REQUIRE_PULSE();
    if (const QString missing = clonetest::workerMissing(); !missing.isEmpty()) GTEST_SKIP() << missing.toStdString();
    PrivateServer::get()->pactl("set-default-source fake_mic");
    PrivateServer::get()->pactl("set-default-sink speakers");
    QTemporaryDir dir;
    QSettings settings(dir.filePath("settings.ini"), QSettings::IniFormat);
    CloneLibrary library(dir.filePath("support/ClonedVoices"), &settings);
    const QUuid voice = clonetest::spokenVoice(library, "Reader", 6, dir.path());
    ASSERT_FALSE(voice.isNull());
    VoiceCloner cloner(clonetest::testWorkerOptions(dir.filePath("support")));

    const auto speech = testaudio::speech(
        "When the sunlight strikes raindrops in the air, they act as a prism and form a rainbow.", 48000);
    const std::string speechFile = dir.filePath("speech.wav").toStdString();
    testaudio::writeWav(speechFile, speech);
    MicFeed feed(speechFile, true);

    VoiceEngine engine(&settings, &AudioBackend::system(), BackendJobs::shared());
    engine.setCloner(&cloner);
    engine.setCloneLatency(CloneLatency::fastest);
    engine.setClone(library.target(voice));
    bool sawStarting = false;
    QObject::connect(&engine, &VoiceEngine::isStreamStartingChanged, [&] { sawStarting |= engine.isStreamStarting(); });
    engine.toggleLive();
    ASSERT_TRUE(waitUntil([&] { return engine.cloneRoute() && engine.cloneRoute()->isStreaming(); }, 30000))
        << engine.errorMessage().toStdString();
    EXPECT_TRUE(sawStarting);
    EXPECT_FALSE(engine.isStreamStarting());
    EXPECT_EQ(settings.value(VoiceEngine::kCloneLatencyKey).toString(), "fastest");

    // Converted speech, not silence: the loudest second is well above the floor.
    auto expectSpeech = [&](const char* source) {
        SourceRecorder listener(source, dir.filePath("heard.wav").toStdString());
        pump(4000);
        const std::vector<float> heard = listener.stop();
        ASSERT_GT(heard.size(), 48000u * 2) << source;
        const size_t loud = testaudio::loudestStart(heard, 48000);
        EXPECT_GT(testaudio::rms(heard, loud, 48000), 0.01) << source << " stayed silent";
    };
    expectSpeech("speakers.monitor");
    EXPECT_EQ(engine.liveGraph()->chain(), nullptr);  // no effect chain on this route

    // In a call, an app recording the virtual mic hears the cloned voice.
    VirtualMicModules mic(*PrivateServer::get());
    ASSERT_TRUE(waitUntil([] { return AudioDeviceList::virtualCableID().has_value(); }, 2000));
    engine.setCallMode(true);
    ASSERT_TRUE(waitUntil([&] { return engine.liveIsCall() && engine.cloneRoute()->isStreaming(); }, 30000))
        << engine.errorMessage().toStdString();
    expectSpeech(VirtualMic::kSourceName);

    engine.toggleLive();
    EXPECT_FALSE(engine.cloneRoute()->isStreaming());
    EXPECT_EQ(engine.errorMessage(), "");
}
