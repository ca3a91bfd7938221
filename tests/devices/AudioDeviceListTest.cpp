// The device list: its rules over hand-made server snapshots (the cable's name
// rules, hidden monitors and loopbacks, order, UIDs, speakers), then the same
// rules and the event delivery against the private sound server.
#include "devices/AudioDeviceList.h"
#include "devices/pulse/PulseBackend.h"
#include "support/PulseServer.h"

#include <QCoreApplication>
#include <QThread>

#include <gtest/gtest.h>

using namespace parlova;
using parlova::pulse::ServerSnapshot;
using parlova::pulse::SinkInfo;
using parlova::pulse::SourceInfo;
using parlova::testpulse::PrivateServer;

namespace {

// A null sink with its monitor, as the server reports one.
void addSink(ServerSnapshot& snap, uint32_t index, const std::string& name, const std::string& description,
             int channels = 2, const std::string& formFactor = "") {
    SinkInfo sink;
    sink.index = index;
    sink.name = name;
    sink.description = description;
    sink.channels = channels;
    sink.rate = 48000;
    sink.monitorSource = 100 + index;
    sink.formFactor = formFactor;
    snap.sinks.push_back(sink);
    SourceInfo monitor;
    monitor.index = 100 + index;
    monitor.name = name + ".monitor";
    monitor.description = "Monitor of " + description;
    monitor.channels = channels;
    monitor.monitorOfSink = index;
    snap.sources.push_back(monitor);
}

void addSource(ServerSnapshot& snap, uint32_t index, const std::string& name, const std::string& description,
               const std::string& master = "", int channels = 1) {
    SourceInfo src;
    src.index = index;
    src.name = name;
    src.description = description;
    src.channels = channels;
    src.rate = 48000;
    src.masterDevice = master;
    snap.sources.push_back(src);
}

// A null sink and a remap source of its monitor: a virtual microphone.
void addLoopback(ServerSnapshot& snap, uint32_t sinkIndex, uint32_t sourceIndex, const std::string& name,
                 const std::string& description) {
    addSink(snap, sinkIndex, name + "_sink", description, 1);
    addSource(snap, sourceIndex, name, description, name + "_sink.monitor");
}

QStringList names(const QList<AudioDevice>& devices) {
    QStringList out;
    for (const auto& d : devices) out << d.name;
    return out;
}

}  // namespace

TEST(DeviceRulesLists, EmptyServerPublishesNothing) {
    const auto table = pulse::buildDeviceTable(ServerSnapshot{});
    const auto lists = deviceRules::publishedLists(table);
    EXPECT_TRUE(lists.inputs.isEmpty());
    EXPECT_TRUE(lists.outputs.isEmpty());
    EXPECT_FALSE(deviceRules::virtualCable(lists.inputs, lists.outputs));
    EXPECT_FALSE(deviceRules::virtualCableID(table));
    EXPECT_TRUE(deviceRules::physicalInputIDs(table).empty());
}

TEST(DeviceRulesLists, MonitorsAreHiddenButFoundByUid) {
    ServerSnapshot snap;
    addSink(snap, 0, "speakers", "Speakers");
    addSource(snap, 5, "usb_mic", "USB Mic");
    const auto table = pulse::buildDeviceTable(snap);
    const auto lists = deviceRules::publishedLists(table);
    EXPECT_EQ(names(lists.inputs), QStringList{"USB Mic"});
    EXPECT_EQ(names(lists.outputs), QStringList{"Speakers"});
    EXPECT_EQ(deviceRules::physicalInputIDs(table), std::vector<uint32_t>{5});
    EXPECT_EQ(deviceRules::deviceID(table, QString("speakers.monitor")), std::optional<uint32_t>(100));
    EXPECT_EQ(deviceRules::deviceID(table, QString("speakers")), std::optional<uint32_t>(0 | kSinkIdBit));
    EXPECT_FALSE(deviceRules::deviceID(table, std::nullopt));
    EXPECT_FALSE(deviceRules::deviceID(table, QString("unplugged")));
    EXPECT_FALSE(deviceRules::deviceID(table, QString("Speakers")));  // UIDs match exactly
}

TEST(DeviceRulesLists, OrderIsTheServersAndSinkIdsCarryTheHighBit) {
    ServerSnapshot snap;
    addSink(snap, 3, "z_sink", "Zeta");
    addSink(snap, 1, "a_sink", "Alpha");
    addSource(snap, 9, "mic_b", "Bravo");
    addSource(snap, 2, "mic_a", "Able");
    const auto lists = deviceRules::publishedLists(pulse::buildDeviceTable(snap));
    EXPECT_EQ(names(lists.outputs), (QStringList{"Zeta", "Alpha"}));
    EXPECT_EQ(names(lists.inputs), (QStringList{"Bravo", "Able"}));
    EXPECT_EQ(lists.outputs[0].id, 3u | kSinkIdBit);
    EXPECT_EQ(lists.outputs[0].uid, "z_sink");
    EXPECT_EQ(lists.inputs[1].id, 2u);
}

TEST(DeviceRulesLists, DevicesWithoutChannelsOrTextAreLeftOut) {
    ServerSnapshot snap;
    addSource(snap, 1, "silent", "No Channels", "", 0);
    addSource(snap, 2, "", "No Name");
    addSource(snap, 3, "nodesc", "");
    const auto table = pulse::buildDeviceTable(snap);
    const auto lists = deviceRules::publishedLists(table);
    EXPECT_TRUE(lists.inputs.isEmpty());
    // A microphone whose name or UID cannot be read is still a real microphone.
    EXPECT_EQ(deviceRules::physicalInputIDs(table), (std::vector<uint32_t>{2, 3}));
}

TEST(DeviceRulesLoopback, LoopbackIsOneRecordInBothListsAndItsSinkIsHidden) {
    ServerSnapshot snap;
    addSink(snap, 0, "speakers", "Speakers");
    addLoopback(snap, 4, 7, "parlova_mic", "Parlova Mic");
    const auto table = pulse::buildDeviceTable(snap);
    const auto lists = deviceRules::publishedLists(table);
    ASSERT_EQ(names(lists.inputs), QStringList{"Parlova Mic"});
    EXPECT_EQ(names(lists.outputs), (QStringList{"Parlova Mic", "Speakers"}));
    EXPECT_EQ(lists.inputs[0], lists.outputs[0]);
    EXPECT_EQ(lists.inputs[0].id, 7u);
    const DeviceEntry* e = table.find(7);
    ASSERT_TRUE(e);
    EXPECT_EQ(e->sinkName, "parlova_mic_sink");
    EXPECT_EQ(e->sourceName, "parlova_mic");
    EXPECT_EQ(e->outputChannels, 1);
    ASSERT_TRUE(table.find(4 | kSinkIdBit));
    EXPECT_TRUE(table.find(4 | kSinkIdBit)->hidden);
    auto cable = deviceRules::virtualCable(lists.inputs, lists.outputs);
    ASSERT_TRUE(cable);
    EXPECT_EQ(cable->uid, "parlova_mic");
    EXPECT_EQ(deviceRules::virtualCableID(table), std::optional<uint32_t>(7));
    EXPECT_TRUE(deviceRules::physicalInputIDs(table).empty());
}

TEST(DeviceRulesLoopback, ExplicitLoopbackPropertyNamesTheSink) {
    ServerSnapshot snap;
    addSink(snap, 2, "feed", "Parlova Mic", 1);
    SourceInfo src;
    src.index = 9;
    src.name = "parlova_mic";
    src.description = "Parlova Mic";
    src.channels = 1;
    src.loopbackSink = "feed";
    snap.sources.push_back(src);
    const auto table = pulse::buildDeviceTable(snap);
    ASSERT_TRUE(table.find(9));
    EXPECT_EQ(table.find(9)->sinkName, "feed");
    EXPECT_TRUE(table.find(2 | kSinkIdBit)->hidden);
}

TEST(DeviceRulesCable, NameRulesPickTheCable) {
    using Build = void (*)(ServerSnapshot&);
    struct Case {
        const char* what;
        Build build;
        const char* cable;  // nullptr: no published cable
        std::optional<uint32_t> id;
        std::vector<uint32_t> physical;
    };
    const Case cases[] = {
        {"own name wins over a BlackHole that comes first",
         [](ServerSnapshot& s) {
             addLoopback(s, 1, 11, "blackhole", "BlackHole 2ch");
             addLoopback(s, 2, 12, "parlova_mic", "Parlova Mic");
         },
         "Parlova Mic", 12, {}},
        {"between the two own names the first wins",
         [](ServerSnapshot& s) {
             addLoopback(s, 1, 11, "tovix", "Tovix Voice Changer Mic");
             addLoopback(s, 2, 12, "parlova_mic", "Parlova Mic");
         },
         "Tovix Voice Changer Mic", 11, {}},
        {"other letter case is not an own name",
         [](ServerSnapshot& s) {
             addLoopback(s, 1, 11, "fake", "parlova mic");
             addLoopback(s, 2, 12, "bh", "my blackhole device");
         },
         "my blackhole device", 12, {11}},
        {"an input-only BlackHole is found by id but is not the cable",
         [](ServerSnapshot& s) {
             addSource(s, 3, "bh_in", "BlackHole 16ch");
             addSink(s, 0, "speakers", "Speakers");
         },
         nullptr, 3, {}},
        {"the monitor of a BlackHole sink is never the cable",
         [](ServerSnapshot& s) { addSink(s, 0, "bh", "BlackHole Out"); }, nullptr, std::nullopt, {}},
    };
    for (const auto& c : cases) {
        ServerSnapshot snap;
        c.build(snap);
        const auto table = pulse::buildDeviceTable(snap);
        const auto lists = deviceRules::publishedLists(table);
        const auto cable = deviceRules::virtualCable(lists.inputs, lists.outputs);
        EXPECT_EQ(cable ? cable->name : QString(), c.cable ? QString(c.cable) : QString()) << c.what;
        EXPECT_EQ(deviceRules::virtualCableID(table), c.id) << c.what;
        if (!c.physical.empty()) { EXPECT_EQ(deviceRules::physicalInputIDs(table), c.physical) << c.what; }
    }
}

TEST(DeviceRulesSpeaker, PortThenPortNameThenFormFactorThenName) {

    struct Case {
        PortKind port;
        const char* portName;
        const char* formFactor;
        std::optional<std::string> name;
        bool speaker;
    };
    const Case cases[] = {
        {PortKind::headphones, "", "", "Studio Speaker Box", false},  // the port wins over the name
        {PortKind::speaker, "", "", "Output", true},
        {PortKind::unknown, "analog-output-headphones", "", "Speaker", false},
        {PortKind::unknown, "analog-output-speaker", "", "Output", true},
        {PortKind::unknown, "", "headphone", "Speaker", false},
        {PortKind::unknown, "", "", "Speaker", true},  // "speaker" in any case
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

TEST(DeviceRulesDefaults, DefaultsMapToEntriesAndLoopbacks) {
    ServerSnapshot snap;
    addSink(snap, 0, "speakers", "Speakers");
    addLoopback(snap, 4, 7, "parlova_mic", "Parlova Mic");
    snap.defaultSource = "parlova_mic";
    snap.defaultSink = "parlova_mic_sink";
    const auto table = pulse::buildDeviceTable(snap);
    EXPECT_EQ(table.defaultInput, std::optional<uint32_t>(7));
    EXPECT_EQ(table.defaultOutput, std::optional<uint32_t>(7));
}

// ---- Against the private sound server ----

TEST(AudioDeviceListPulse, DefaultInputReadAndSet) {
    PARLOVA_REQUIRE_PULSE();
    auto* server = PrivateServer::get();
    const int sink = server->nullSink("alt_feed", "Other Feed", 1);
    const int src = server->remapSource("alt_feed", "alt_mic", "Other Mic");
    auto alt = AudioDeviceList::deviceID(QString("alt_mic"));
    ASSERT_TRUE(alt);
    const auto before = AudioDeviceList::defaultInputID();
    EXPECT_TRUE(AudioDeviceList::setDefaultInput(*alt));
    EXPECT_EQ(server->pactl("get-default-source"), "alt_mic");
    EXPECT_EQ(AudioDeviceList::defaultInputID(), alt);
    EXPECT_FALSE(AudioDeviceList::setDefaultInput(0x7ffffff0u));  // no such device
    ASSERT_TRUE(before);
    EXPECT_TRUE(AudioDeviceList::setDefaultInput(*before));
    EXPECT_EQ(server->pactl("get-default-source"), "fake_mic");
    server->unloadModule(src);
    server->unloadModule(sink);
}

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

TEST(AudioDeviceListPulse, DefaultChangeIsReported) {
    PARLOVA_REQUIRE_PULSE();
    auto* server = PrivateServer::get();
    AudioDeviceList list;
    ASSERT_TRUE(testpulse::waitUntil([&] { return !list.inputs().isEmpty(); }, 3000));
    int changes = 0;
    QObject::connect(&list, &AudioDeviceList::defaultsChanged, [&] { ++changes; });
    testpulse::pump(100);
    changes = 0;
    server->pactl("set-default-sink headphones");
    EXPECT_TRUE(testpulse::waitUntil([&] { return changes > 0; }, 3000));
    EXPECT_EQ(AudioDeviceList::defaultOutputID(), AudioDeviceList::deviceID(QString("headphones")));
    server->pactl("set-default-sink speakers");
}
