#include "devices/AudioDeviceList.h"

#include "devices/BackendJobs.h"

#include <QHash>

namespace parlova {

size_t qHash(const AudioDevice& device, size_t seed) noexcept {
    return qHashMulti(seed, device.id, device.uid, device.name);
}

namespace deviceRules {
namespace {

std::optional<QString> text(const std::optional<std::string>& s) {
    if (!s) return std::nullopt;
    return QString::fromStdString(*s);
}

}  // namespace

bool isOwnVirtualMicName(const QString& name) {
    return name == kVirtualMicName || name == kFormerVirtualMicName;
}

bool isVirtualMicName(const QString& name) {
    return isOwnVirtualMicName(name) || name.contains(QStringLiteral("BlackHole"), Qt::CaseInsensitive);
}

Lists publishedLists(const DeviceTable& table) {
    Lists lists;
    for (const auto& e : table.entries) {
        if (e.hidden || !e.uid || !e.name) continue;
        AudioDevice d{e.id, QString::fromStdString(*e.uid), QString::fromStdString(*e.name)};
        if (e.inputChannels >= 1) lists.inputs.append(d);
        if (e.outputChannels >= 1) lists.outputs.append(d);
    }
    return lists;
}

std::optional<AudioDevice> virtualCable(const QList<AudioDevice>& inputs, const QList<AudioDevice>& outputs) {
    std::optional<AudioDevice> fallback;
    for (const auto& d : inputs) {
        if (!isVirtualMicName(d.name) || !outputs.contains(d)) continue;
        if (isOwnVirtualMicName(d.name)) return d;
        if (!fallback) fallback = d;
    }
    return fallback;
}

std::optional<uint32_t> virtualCableID(const DeviceTable& table) {
    std::optional<uint32_t> fallback;
    for (const auto& e : table.entries) {
        // Monitors are never a microphone, whatever the sink they copy is called.
        if (e.isMonitor || !e.name || e.inputChannels <= 0) continue;
        const QString name = QString::fromStdString(*e.name);
        if (!isVirtualMicName(name)) continue;
        if (isOwnVirtualMicName(name)) return e.id;
        if (!fallback) fallback = e.id;
    }
    return fallback;
}

std::vector<uint32_t> physicalInputIDs(const DeviceTable& table) {
    std::vector<uint32_t> ids;
    for (const auto& e : table.entries) {
        if (e.inputChannels <= 0 || e.hidden) continue;
        if (auto name = text(e.name); name && isVirtualMicName(*name)) continue;
        ids.push_back(e.id);
    }
    return ids;
}

std::optional<uint32_t> deviceID(const DeviceTable& table, const std::optional<QString>& uid) {
    if (!uid) return std::nullopt;
    const std::string wanted = uid->toStdString();
    for (const auto& e : table.entries)
        if (e.uid && *e.uid == wanted) return e.id;
    return std::nullopt;
}

bool isSpeaker(const DeviceEntry& e) {
    const QString port = QString::fromStdString(e.outputPortName);
    if (e.outputPort == PortKind::speaker) return true;
    if (e.outputPort == PortKind::headphones) return false;
    if (port.contains(QStringLiteral("speaker"), Qt::CaseInsensitive)) return true;
    if (port.contains(QStringLiteral("headphone"), Qt::CaseInsensitive) ||
        port.contains(QStringLiteral("headset"), Qt::CaseInsensitive))
        return false;
    const QString form = QString::fromStdString(e.outputFormFactor);
    if (form == QLatin1String("speaker")) return true;
    if (form == QLatin1String("headphone") || form == QLatin1String("headset") || form == QLatin1String("handset"))
        return false;
    if (!e.name) return false;
    return QString::fromStdString(*e.name).contains(QStringLiteral("speaker"), Qt::CaseInsensitive);
}

}  // namespace deviceRules

AudioDeviceList::AudioDeviceList(AudioBackend* backend, QObject* parent) : QObject(parent), backend_(backend) {
    if (!backend_) return;
    auto& events = backend_->events();
    connect(&events, &BackendEvents::devicesChanged, this, &AudioDeviceList::refresh);
    connect(&events, &BackendEvents::defaultsChanged, this, &AudioDeviceList::defaultsChanged);
    connect(&events, &BackendEvents::serverLost, this, &AudioDeviceList::serverLost);
    refresh();
}

void AudioDeviceList::refresh() {
    if (!backend_) return;
    if (refreshing_) {
        refreshAgain_ = true;  // one more read once the current one answers
        return;
    }
    refreshing_ = true;
    AudioBackend* backend = backend_;
    BackendJobs::shared().request(
        this, [backend] { return backend->snapshot().value_or(DeviceTable{}); },
        [this](DeviceTable table) {
            refreshing_ = false;
            publish(table);
            if (refreshAgain_) {
                refreshAgain_ = false;
                refresh();
            }
        });
}

void AudioDeviceList::publish(const DeviceTable& table) {
    auto lists = deviceRules::publishedLists(table);
    if (lists.inputs != inputs_) {
        inputs_ = std::move(lists.inputs);
        emit inputsChanged();
    }
    if (lists.outputs != outputs_) {
        outputs_ = std::move(lists.outputs);
        emit outputsChanged();
    }
}

namespace {
DeviceTable readDeviceTable() { return AudioBackend::system().snapshot().value_or(DeviceTable{}); }
}  // namespace

std::optional<uint32_t> AudioDeviceList::deviceID(const std::optional<QString>& uid) {
    if (!uid) return std::nullopt;
    return deviceRules::deviceID(readDeviceTable(), uid);
}

std::optional<uint32_t> AudioDeviceList::virtualCableID() { return deviceRules::virtualCableID(readDeviceTable()); }

std::vector<uint32_t> AudioDeviceList::physicalInputIDs() { return deviceRules::physicalInputIDs(readDeviceTable()); }

bool AudioDeviceList::isSpeaker(uint32_t device) {
    const auto table = readDeviceTable();
    const DeviceEntry* e = table.find(device);
    return e && deviceRules::isSpeaker(*e);
}

std::optional<QString> AudioDeviceList::uid(uint32_t device) {
    const auto table = readDeviceTable();
    const DeviceEntry* e = table.find(device);
    if (!e || !e->uid) return std::nullopt;
    return QString::fromStdString(*e->uid);
}

std::optional<QString> AudioDeviceList::name(uint32_t device) {
    const auto table = readDeviceTable();
    const DeviceEntry* e = table.find(device);
    if (!e || !e->name) return std::nullopt;
    return QString::fromStdString(*e->name);
}

int AudioDeviceList::channelCount(uint32_t device, Direction direction) {
    const auto table = readDeviceTable();
    const DeviceEntry* e = table.find(device);
    if (!e) return 0;
    return direction == Direction::input ? e->inputChannels : e->outputChannels;
}

std::optional<uint32_t> AudioDeviceList::defaultInputID() { return readDeviceTable().defaultInput; }

std::optional<uint32_t> AudioDeviceList::defaultOutputID() { return readDeviceTable().defaultOutput; }

bool AudioDeviceList::setDefaultInput(uint32_t device) {
    const auto table = readDeviceTable();
    const DeviceEntry* e = table.find(device);
    return e && AudioBackend::system().setDefaultInput(*e);
}

bool AudioDeviceList::isServerReachable() { return AudioBackend::system().snapshot().has_value(); }

DeviceWatcher::DeviceWatcher(AudioBackend* backend, QObject* parent) : QObject(parent) {
    if (!backend) return;
    auto& events = backend->events();
    connect(&events, &BackendEvents::sourceRemoved, this,
            [this](uint32_t index) { lose([index](const Watched& w) { return w.sourceIndex == index; }); });
    connect(&events, &BackendEvents::sinkRemoved, this,
            [this](uint32_t index) { lose([index](const Watched& w) { return w.sinkIndex == index; }); });
    connect(&events, &BackendEvents::serverLost, this, [this] { lose([](const Watched&) { return true; }); });
}

void DeviceWatcher::watch(const std::vector<const DeviceEntry*>& devices) {
    watched_.clear();
    for (const DeviceEntry* e : devices) watched_.push_back({e->id, e->sourceIndex, e->sinkIndex});
}

void DeviceWatcher::unwatch() { watched_.clear(); }

void DeviceWatcher::lose(const std::function<bool(const Watched&)>& gone) {
    std::vector<uint32_t> lost;
    for (auto it = watched_.begin(); it != watched_.end();) {
        if (gone(*it)) {
            lost.push_back(it->id);
            it = watched_.erase(it);
        } else {
            ++it;
        }
    }
    for (uint32_t id : lost) emit deviceLost(id);
}

}  // namespace parlova
