// The virtual microphone: its login file's text, then install, update and
// remove against the private sound server, where a second client recording
// "Parlova Mic" must hear what is played into it, and the former device must
// go away with both install and remove.
#include "devices/AudioDeviceList.h"
#include "devices/VirtualMic.h"
#include "devices/AudioBackend.h"
#include "support/MemorySource.h"
#include "support/Files.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <gtest/gtest.h>

using namespace parlova;
using parlova::testpulse::PrivateServer;

namespace {

QString readFile(const QString& path) { return QString::fromUtf8(testfiles::read(path)); }

// Refuses to go on unless every config path lies inside the private server's
// folder: these tests must never edit the developer's own configuration.
#define REQUIRE_PRIVATE_CONFIG()                                                                            \
    do {                                                                                                    \
        PARLOVA_REQUIRE_PULSE();                                                                            \
        const QString root = QString::fromStdString(PrivateServer::get()->dir());                           \
        ASSERT_TRUE(VirtualMic::pulseConfigPath().startsWith(root)) << VirtualMic::pulseConfigPath().toStdString(); \
        ASSERT_TRUE(VirtualMic::pipewireConfigPath().startsWith(root));                                     \
    } while (0)

int countModules(const QString& pattern) {
    return QString::fromStdString(PrivateServer::get()->pactl("list short modules")).count(pattern);
}

}  // namespace

// The blocks' life on a real login file (added once, the former one replaced,
// both removed with the user's lines kept) is tried on the server below; here
// what needs no server: where a new file puts the system setup, and the
// PipeWire drop-in's quoting.
TEST(VirtualMicConfig, ANewFileIncludesTheSystemSetupFirstAndTheDropInEscapesItsQuotes) {
    const QString created = VirtualMic::withPulseBlock({}, false);
    EXPECT_LT(created.indexOf(".include /etc/pulse/default.pa\n"), created.indexOf("### BEGIN Parlova Mic"));
    EXPECT_TRUE(created.contains(".nofail\n"));
    EXPECT_TRUE(VirtualMic::withoutPulseBlocks(created).isEmpty());

    const QString dropIn = VirtualMic::pipewireDropIn();
    EXPECT_TRUE(dropIn.contains("pulse.cmd = ["));
    EXPECT_TRUE(dropIn.contains("sink_properties=\\\"device.description='Parlova Mic' device.class=abstract\\\""));
    EXPECT_EQ(dropIn.count("{ cmd = \"load-module\""), 2);
    EXPECT_FALSE(dropIn.contains("properties=\"device"));
}

TEST(VirtualMicPulse, InstallLoadsPersistsAndAnotherClientHearsIt) {
    REQUIRE_PRIVATE_CONFIG();
    AudioDeviceList devices;
    EXPECT_FALSE(VirtualMic::status().loaded);
    VirtualMic::install();
    auto status = VirtualMic::status();
    EXPECT_TRUE(status.serverReachable);
    EXPECT_FALSE(status.pipewire);
    EXPECT_TRUE(status.loaded);
    EXPECT_TRUE(status.persisted);
    EXPECT_TRUE(readFile(VirtualMic::pulseConfigPath()).contains(".include /etc/pulse/default.pa"));

    devices.refresh();
    testpulse::waitUntil([&] { return devices.virtualCable().has_value(); }, 3000);
    auto cable = devices.virtualCable();
    ASSERT_TRUE(cable);
    EXPECT_EQ(cable->name, "Parlova Mic");
    EXPECT_EQ(cable->uid, "parlova_mic");
    EXPECT_EQ(AudioDeviceList::virtualCableID(), std::optional<uint32_t>(cable->id));
    // The real microphone is still the only physical one.
    EXPECT_EQ(AudioDeviceList::physicalInputIDs().size(), 1u);

    // A call app's view: record from "Parlova Mic" while Parlova plays into it.
    testaudio::TempFolder dir;
    testaudio::SineSource sine(330.0, 48000, 0.4f);
    const auto table = AudioBackend::system().snapshot();
    ASSERT_TRUE(table && table->find(cable->id));
    auto output = AudioBackend::system().openOutput(*table->find(cable->id), AudioFormat{48000, 2}, sine, 0.02, {});
    std::vector<float> heard;
    {
        testpulse::SourceRecorder recorder("parlova_mic", dir.file("call.wav"));
        output->start();
        ASSERT_TRUE(testpulse::waitUntil([&] { return sine.maxSlice.load() > 0; }, 4000));
        testpulse::pump(1200);
        output->stop();
        testpulse::pump(1000);
        heard = recorder.stop();
    }
    ASSERT_GT(heard.size(), 24000u);
    const size_t best = testaudio::loudestStart(heard, 12000);
    EXPECT_NEAR(testaudio::rms(heard, best, 12000), 0.4 / std::sqrt(2.0), 0.05);
    EXPECT_NEAR(testaudio::fundamental(heard, 48000, best, 12000), 330.0, 2.0);

    // Installing again is the update: still one pair and one block.
    VirtualMic::install();
    EXPECT_EQ(countModules("sink_name=parlova_mic_sink"), 1);
    EXPECT_EQ(countModules("source_name=parlova_mic "), 1);
    EXPECT_EQ(readFile(VirtualMic::pulseConfigPath()).count("### BEGIN Parlova Mic"), 1);

    VirtualMic::uninstall();
    status = VirtualMic::status();
    EXPECT_FALSE(status.loaded);
    EXPECT_FALSE(status.persisted);
    EXPECT_FALSE(QFile::exists(VirtualMic::pulseConfigPath()));  // we made it, so it went
    devices.refresh();
    EXPECT_TRUE(testpulse::waitUntil([&] { return !devices.virtualCable(); }, 3000));
    EXPECT_EQ(countModules("parlova_mic"), 0);
}

TEST(VirtualMicPulse, FormerDeviceGoesWithInstallAndRemove) {
    REQUIRE_PRIVATE_CONFIG();
    auto* server = PrivateServer::get();
    auto loadFormer = [&] {
        server->nullSink(VirtualMic::kFormerSinkName, "Tovix Voice Changer Mic", 1);
        server->remapSource(VirtualMic::kFormerSinkName, VirtualMic::kFormerSourceName, "Tovix Voice Changer Mic");
    };
    const QString userConfig = "load-module module-always-sink\n";
    testfiles::write(VirtualMic::pulseConfigPath(),
                     (userConfig + "### BEGIN Tovix Voice Changer Mic\nload-module module-null-sink sink_name=x\n### END Tovix Voice Changer Mic\n").toUtf8());
    loadFormer();
    EXPECT_TRUE(VirtualMic::status().formerPresent);
    EXPECT_EQ(AudioDeviceList::name(*AudioDeviceList::virtualCableID()), std::optional<QString>("Tovix Voice Changer Mic"));
    VirtualMic::install();
    EXPECT_EQ(countModules("tovix_voice_changer_mic"), 0);
    EXPECT_FALSE(VirtualMic::status().formerPresent);
    EXPECT_EQ(AudioDeviceList::name(*AudioDeviceList::virtualCableID()), std::optional<QString>("Parlova Mic"));
    EXPECT_TRUE(readFile(VirtualMic::pulseConfigPath()).startsWith(userConfig));
    EXPECT_FALSE(readFile(VirtualMic::pulseConfigPath()).contains("Tovix"));  // the former block is replaced

    loadFormer();
    VirtualMic::uninstall();
    EXPECT_EQ(countModules("tovix_voice_changer_mic"), 0);
    EXPECT_EQ(countModules("parlova_mic"), 0);
    EXPECT_FALSE(AudioDeviceList::virtualCableID());
    EXPECT_EQ(readFile(VirtualMic::pulseConfigPath()), userConfig);  // the user's own line stays
    QFile::remove(VirtualMic::pulseConfigPath());
}

TEST(VirtualMicPulse, SetupFlowWaitsForTheDeviceAndRefreshesAfterRemove) {
    REQUIRE_PRIVATE_CONFIG();
    AudioDeviceList devices;
    VirtualMicSetup setup(&devices);
    setup.setPollInterval(20);
    setup.setRefreshDelay(50);
    QStringList errors;
    int finished = 0;
    QObject::connect(&setup, &VirtualMicSetup::errorMessage, [&](const QString& m) { errors << m; });
    QObject::connect(&setup, &VirtualMicSetup::finished, [&] { ++finished; });
    setup.install();
    EXPECT_TRUE(setup.installing());
    ASSERT_TRUE(testpulse::waitUntil([&] { return finished == 1; }, 3000));
    EXPECT_FALSE(setup.installing());
    EXPECT_TRUE(errors.isEmpty()) << errors.join(" | ").toStdString();
    ASSERT_TRUE(devices.virtualCable());
    EXPECT_EQ(devices.virtualCable()->name, "Parlova Mic");

    setup.remove();
    ASSERT_TRUE(testpulse::waitUntil([&] { return finished == 2; }, 3000));
    EXPECT_TRUE(errors.isEmpty());
    EXPECT_FALSE(devices.virtualCable());
}
