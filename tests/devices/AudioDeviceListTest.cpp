// The device list: its rules over hand-made server snapshots (the cable's name
// rules, hidden monitors and loopbacks, order, UIDs, speakers), then the event
// delivery against the private sound server. (Setting and following the
// default input is tried by the call mode's tests on the same server.)
#include "devices/AudioDeviceList.h"
#include "devices/pulse/PulseBackend.h"
#include "support/PulseServer.h"

#include <QCoreApplication>
#include <QThread>

#include <gtest/gtest.h>

using namespace parlova;
using parlova::testpulse::PrivateServer;

namespace {

// A server snapshot built up as the server reports its objects.
struct Snap {
    pulse::ServerSnapshot s;
    // A sink with its monitor source (index 100 + index).
    Snap& sink(uint32_t i, const std::string& name, const std::string& description, int channels = 2) {
        pulse::SinkInfo& k = s.sinks.emplace_back();
        k.index = i, k.name = name, k.description = description, k.channels = channels, k.rate = 48000;
        k.monitorSource = 100 + i;
        source(100 + i, name + ".monitor", "Monitor of " + description, "", channels).s.sources.back().monitorOfSink = i;
        return *this;
    }
    Snap& source(uint32_t i, const std::string& name, const std::string& description, const std::string& master = "",
                 int channels = 1) {
        pulse::SourceInfo& k = s.sources.emplace_back();
        k.index = i, k.name = name, k.description = description, k.channels = channels, k.rate = 48000;
        k.masterDevice = master;
        return *this;
    }
    // A mono null sink and a remap source of its monitor: a virtual microphone.
    Snap& loopback(uint32_t sinkIndex, uint32_t sourceIndex, const std::string& name, const std::string& description) {
        return sink(sinkIndex, name + "_sink", description, 1).source(sourceIndex, name, description, name + "_sink.monitor");
    }
    DeviceTable table() const { return pulse::buildDeviceTable(s); }
};

QStringList names(const QList<AudioDevice>& devices) {
    QStringList out;
    for (const auto& d : devices) out << d.name;
    return out;
}

}  // namespace

TEST(DeviceRules, PublishedListsCableAndPhysicalInputs) {
    const struct {
        const char* what;
        Snap snap;
        QStringList inputs, outputs;
        const char* cable;  // the published cable's name, nullptr for none
        std::optional<uint32_t> cableId;
        std::vector<uint32_t> physical;
    } cases[] = {
        {"an empty server", Snap(), {}, {}, nullptr, std::nullopt, {}},
        {"monitors are hidden", Snap().sink(0, "speakers", "Speakers").source(5, "usb_mic", "USB Mic"), {"USB Mic"},
         {"Speakers"}, nullptr, std::nullopt, {5}},
        {"the server's order is kept",
         Snap().sink(3, "z_sink", "Zeta").sink(1, "a_sink", "Alpha").source(9, "mic_b", "Bravo").source(2, "mic_a", "Able"),
         {"Bravo", "Able"}, {"Zeta", "Alpha"}, nullptr, std::nullopt, {9, 2}},
        {"devices without channels or text are left out; unnamed microphones are still real",
         Snap().source(1, "silent", "No Channels", "", 0).source(2, "", "No Name").source(3, "nodesc", ""), {}, {},
         nullptr, std::nullopt, {2, 3}},
        {"a loopback is one record in both lists",
         Snap().sink(0, "speakers", "Speakers").loopback(4, 7, "parlova_mic", "Parlova Mic"), {"Parlova Mic"},
         {"Parlova Mic", "Speakers"}, "Parlova Mic", 7, {}},
        {"the own name wins over a BlackHole that comes first",
         Snap().loopback(1, 11, "blackhole", "BlackHole 2ch").loopback(2, 12, "parlova_mic", "Parlova Mic"),
         {"BlackHole 2ch", "Parlova Mic"}, {"BlackHole 2ch", "Parlova Mic"}, "Parlova Mic", 12, {}},
        {"between the two own names the first wins",
         Snap().loopback(1, 11, "tovix", "Tovix Voice Changer Mic").loopback(2, 12, "parlova_mic", "Parlova Mic"),
         {"Tovix Voice Changer Mic", "Parlova Mic"}, {"Tovix Voice Changer Mic", "Parlova Mic"},
         "Tovix Voice Changer Mic", 11, {}},
        {"another letter case is not an own name",
         Snap().loopback(1, 11, "fake", "parlova mic").loopback(2, 12, "bh", "my blackhole device"),
         {"parlova mic", "my blackhole device"}, {"parlova mic", "my blackhole device"}, "my blackhole device", 12,
         {11}},
        {"an input-only BlackHole is found by id but is not the cable",
         Snap().source(3, "bh_in", "BlackHole 16ch").sink(0, "speakers", "Speakers"), {"BlackHole 16ch"},
         {"Speakers"}, nullptr, 3, {}},
        {"the monitor of a BlackHole sink is never the cable", Snap().sink(0, "bh", "BlackHole Out"), {},
         {"BlackHole Out"}, nullptr, std::nullopt, {}},
    };
    for (const auto& c : cases) {
        const auto table = c.snap.table();
        const auto lists = deviceRules::publishedLists(table);
        EXPECT_EQ(names(lists.inputs), c.inputs) << c.what;
        EXPECT_EQ(names(lists.outputs), c.outputs) << c.what;
        const auto cable = deviceRules::virtualCable(lists.inputs, lists.outputs);
        EXPECT_EQ(cable ? cable->name : QString(), QString(c.cable)) << c.what;
        EXPECT_EQ(deviceRules::virtualCableID(table), c.cableId) << c.what;
        EXPECT_EQ(deviceRules::physicalInputIDs(table), c.physical) << c.what;
    }
}

TEST(DeviceRules, IdsUidsLoopbackEntriesAndDefaults) {
    Snap snap = Snap().sink(0, "speakers", "Speakers").loopback(4, 7, "parlova_mic", "Parlova Mic");
    snap.s.defaultSource = "parlova_mic";
    snap.s.defaultSink = "parlova_mic_sink";
    auto table = snap.table();
    const auto lists = deviceRules::publishedLists(table);
    EXPECT_EQ(lists.inputs[0], lists.outputs[0]);
    // The loopback's sink and source are one device, the default for both sides.
    EXPECT_EQ(table.defaultInput, std::optional<uint32_t>(7));
    EXPECT_EQ(table.defaultOutput, std::optional<uint32_t>(7));
    ASSERT_TRUE(table.find(7));
    EXPECT_EQ(table.find(7)->sinkName, "parlova_mic_sink");
    EXPECT_TRUE(table.find(4 | kSinkIdBit)->hidden);
    // Hidden monitors are still found by UID; UIDs match exactly.
    EXPECT_EQ(deviceRules::deviceID(table, QString("speakers.monitor")), std::optional<uint32_t>(100));
    EXPECT_EQ(deviceRules::deviceID(table, QString("speakers")), std::optional<uint32_t>(0 | kSinkIdBit));
    EXPECT_FALSE(deviceRules::deviceID(table, std::nullopt));
    EXPECT_FALSE(deviceRules::deviceID(table, QString("unplugged")));
    EXPECT_FALSE(deviceRules::deviceID(table, QString("Speakers")));

    // An explicit loopback property names the sink, whatever the source's master.
    snap = Snap().sink(2, "feed", "Parlova Mic", 1).source(9, "parlova_mic", "Parlova Mic");
    snap.s.sources.back().loopbackSink = "feed";
    table = snap.table();
    ASSERT_TRUE(table.find(9));
    EXPECT_EQ(table.find(9)->sinkName, "feed");
    EXPECT_TRUE(table.find(2 | kSinkIdBit)->hidden);
}

TEST(DeviceRules, SpeakerByPortThenPortNameThenFormFactorThenName) {
    const struct {
        PortKind port;
        const char *portName, *formFactor;
        std::optional<std::string> name;
        bool speaker;
    } cases[] = {
        {PortKind::headphones, "", "", "Studio Speaker Box", false},  // the port wins over the name
        {PortKind::speaker, "", "", "Output", true},
        {PortKind::unknown, "analog-output-headphones", "", "Speaker", false},
        {PortKind::unknown, "analog-output-speaker", "", "Output", true},
        {PortKind::unknown, "", "headphone", "Speaker", false},
        {PortKind::unknown, "", "", "Speaker", true},
        {PortKind::unknown, "", "", "HDMI", false},
        {PortKind::unknown, "", "", std::nullopt, false},
    };
    for (const auto& c : cases) {
        DeviceEntry e;
        e.outputPort = c.port;
        e.outputPortName = c.portName;
        e.outputFormFactor = c.formFactor;
        e.name = c.name;
        EXPECT_EQ(deviceRules::isSpeaker(e), c.speaker) << c.portName << c.formFactor << c.name.value_or("-");
    }
}

// ---- Against the private sound server ----

TEST(AudioDeviceListPulse, EventsRepublishOnTheMainThread) {
    PARLOVA_REQUIRE_PULSE();
    auto* server = PrivateServer::get();
    AudioDeviceList list;
    ASSERT_TRUE(testpulse::waitUntil([&] { return !list.inputs().isEmpty(); }, 3000));
    QThread* mainThread = QCoreApplication::instance()->thread();
    bool offMain = false;
    int outputChanges = 0;
    QObject::connect(&list, &AudioDeviceList::outputsChanged, [&] {
        if (QThread::currentThread() != mainThread) offMain = true;
        ++outputChanges;
    });
    const int module = server->nullSink("studio", "Studio Monitor");
    ASSERT_GE(module, 0);
    EXPECT_TRUE(testpulse::waitUntil([&] { return names(list.outputs()).contains("Studio Monitor"); }, 3000));
    server->unloadModule(module);
    EXPECT_TRUE(testpulse::waitUntil([&] { return !names(list.outputs()).contains("Studio Monitor"); }, 3000));
    EXPECT_FALSE(offMain);
    // One load and one unload: bursts of server events are coalesced.
    EXPECT_GE(outputChanges, 2);
    EXPECT_LE(outputChanges, 4);
    // The monitor that came with the sink never reached the inputs.
    EXPECT_EQ(names(list.inputs()), QStringList{"Fake Microphone"});
}
