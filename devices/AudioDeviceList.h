#pragma once
// The application's view of the machine's audio devices: the published input
// and output lists that pickers show and that saved choices are resolved
// against, kept current as devices come and go, plus static queries over the
// sound server's device table that the engine uses for live routing and call
// mode. See devices/DeviceTable.h for how sources and sinks become devices
// (ids, UIDs, names, hidden monitors, loopbacks).
#include "devices/AudioBackend.h"
#include "devices/DeviceTable.h"

#include <QList>
#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace parlova {

struct AudioDevice {
    uint32_t id = 0;  // the server object's index (bit 31 set for sinks); not stable across restarts
    QString uid;      // persistent: what settings store
    QString name;     // display name
    bool operator==(const AudioDevice&) const = default;
};

size_t qHash(const AudioDevice& device, size_t seed = 0) noexcept;

enum class Direction { input, output };

// The device-list rules, as pure functions over a table, so they can be
// checked on any table; the static queries of AudioDeviceList apply them to
// the live server.
namespace deviceRules {

inline const QString kVirtualMicName = QStringLiteral("Parlova Mic");
inline const QString kFormerVirtualMicName = QStringLiteral("Tovix Voice Changer Mic");

// One of the application's own two names, compared exactly.
bool isOwnVirtualMicName(const QString& name);
// An own name, or any name containing "BlackHole" in any letter case.
bool isVirtualMicName(const QString& name);

struct Lists {
    QList<AudioDevice> inputs;
    QList<AudioDevice> outputs;
};
// Every listed device with a UID and a name: inputs with at least one input
// channel, outputs with at least one output channel, in table order.
Lists publishedLists(const DeviceTable& table);
// The first input with a virtual-mic name that is also in outputs as the same
// record, preferring an own name over a "BlackHole" one.
std::optional<AudioDevice> virtualCable(const QList<AudioDevice>& inputs, const QList<AudioDevice>& outputs);
// The same rules over the raw table: needs input channels only.
std::optional<uint32_t> virtualCableID(const DeviceTable& table);
// Real microphones: inputs that are neither hidden nor virtual-mic named.
// A device whose name cannot be read still counts.
std::vector<uint32_t> physicalInputIDs(const DeviceTable& table);
// Exact UID match over every entry, hidden ones included.
std::optional<uint32_t> deviceID(const DeviceTable& table, const std::optional<QString>& uid);
// Whether playing through this entry would be heard in the room: the active
// port decides, then the form factor, then "speaker" in the name.
bool isSpeaker(const DeviceEntry& entry);

}  // namespace deviceRules

class AudioDeviceList : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<parlova::AudioDevice> inputs READ inputs NOTIFY inputsChanged)
    Q_PROPERTY(QList<parlova::AudioDevice> outputs READ outputs NOTIFY outputsChanged)

public:
    // Reads the devices once and then follows the server's events (on the
    // main thread; needs a QCoreApplication). Reading happens on the backend's
    // job thread; the lists are published when the answer arrives.
    explicit AudioDeviceList(AudioBackend* backend = &AudioBackend::system(), QObject* parent = nullptr);

    const QList<AudioDevice>& inputs() const { return inputs_; }
    const QList<AudioDevice>& outputs() const { return outputs_; }
    std::optional<AudioDevice> virtualCable() const { return deviceRules::virtualCable(inputs_, outputs_); }

    // Re-reads the device table and republishes the lists that changed,
    // inputs first, once the server answers.
    void refresh();
    // Publishes the lists of a table read elsewhere.
    void publish(const DeviceTable& table);

    // Blocking queries for headless commands and tests: each takes a fresh
    // snapshot of the system's server. Never call them from a window's main
    // thread; the engine works on one snapshot per operation instead.
    static std::optional<uint32_t> deviceID(const std::optional<QString>& uid);
    static std::optional<uint32_t> virtualCableID();
    static std::vector<uint32_t> physicalInputIDs();
    static bool isSpeaker(uint32_t device);
    static std::optional<QString> uid(uint32_t device);
    static std::optional<QString> name(uint32_t device);
    static int channelCount(uint32_t device, Direction direction);
    // The server's default source and sink as device ids.
    static std::optional<uint32_t> defaultInputID();
    static std::optional<uint32_t> defaultOutputID();
    // Makes the device the server's default source (the system microphone);
    // false when it has no input or the server refused.
    static bool setDefaultInput(uint32_t device);
    // Whether a sound server answers at all.
    static bool isServerReachable();

signals:
    void inputsChanged();
    void outputsChanged();
    void defaultsChanged();  // the default input or output changed
    void serverLost();

private:
    AudioBackend* backend_;
    QList<AudioDevice> inputs_;
    QList<AudioDevice> outputs_;
    bool refreshing_ = false;
    bool refreshAgain_ = false;
};

// Watches the devices a live session uses and reports, on the main thread,
// each one that disappears (unplugged, its module unloaded, the server gone).
class DeviceWatcher : public QObject {
    Q_OBJECT
public:
    explicit DeviceWatcher(AudioBackend* backend, QObject* parent = nullptr);
    void watch(const std::vector<const DeviceEntry*>& devices);  // replaces the watched set
    void unwatch();
    bool isWatching() const { return !watched_.empty(); }

signals:
    void deviceLost(uint32_t device);

private:
    struct Watched {
        uint32_t id;
        uint32_t sourceIndex;
        uint32_t sinkIndex;
    };
    void lose(const std::function<bool(const Watched&)>& gone);
    std::vector<Watched> watched_;
};

}  // namespace parlova

Q_DECLARE_METATYPE(parlova::AudioDevice)
