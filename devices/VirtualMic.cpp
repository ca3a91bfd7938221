#include "devices/VirtualMic.h"

#include "devices/AudioDeviceList.h"
#include "devices/BackendJobs.h"
#include "common/VoiceEngineError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>

namespace parlova {
namespace {

const QString kName = QStringLiteral("Parlova Mic");
const QString kFormerName = QStringLiteral("Tovix Voice Changer Mic");
const QString kBegin = QStringLiteral("### BEGIN Parlova Mic");
const QString kEnd = QStringLiteral("### END Parlova Mic");
const QString kFormerBegin = QStringLiteral("### BEGIN Tovix Voice Changer Mic");
const QString kFormerEnd = QStringLiteral("### END Tovix Voice Changer Mic");
const QString kCreatedHeader =
    QStringLiteral("# Created by Parlova for its virtual microphone; the system's own setup comes first.\n"
                   ".include /etc/pulse/default.pa\n");

bool hasWord(const std::string& arguments, const QString& word) {
    const QRegularExpression re(QStringLiteral("(^|\\s)") + QRegularExpression::escape(word) + QStringLiteral("(\\s|$)"));
    return re.match(QString::fromStdString(arguments)).hasMatch();
}

struct Loaded {
    std::vector<uint32_t> current;  // sources first, so they go before their sinks
    std::vector<uint32_t> former;
};

Loaded loadedModules(const std::vector<ModuleInfo>& modules) {
    Loaded found;
    std::vector<uint32_t> currentSinks, formerSinks;
    for (const auto& m : modules) {
        const bool former = QString::fromStdString(m.argument).contains(kFormerName);
        if (m.name == "module-remap-source") {
            if (hasWord(m.argument, QStringLiteral("source_name=") + VirtualMic::kSourceName)) found.current.push_back(m.index);
            else if (former || hasWord(m.argument, QStringLiteral("source_name=") + VirtualMic::kFormerSourceName))
                found.former.push_back(m.index);
        } else if (m.name == "module-null-sink") {
            if (hasWord(m.argument, QStringLiteral("sink_name=") + VirtualMic::kSinkName)) currentSinks.push_back(m.index);
            else if (former || hasWord(m.argument, QStringLiteral("sink_name=") + VirtualMic::kFormerSinkName))
                formerSinks.push_back(m.index);
        }
    }
    found.current.insert(found.current.end(), currentSinks.begin(), currentSinks.end());
    found.former.insert(found.former.end(), formerSinks.begin(), formerSinks.end());
    return found;
}

bool isPipewire(const std::string& serverName) {
    return QString::fromStdString(serverName).contains(QStringLiteral("PipeWire"), Qt::CaseInsensitive);
}

QString readText(const QString& path, bool* exists) {
    QFile f(path);
    *exists = f.exists();
    if (!f.open(QIODevice::ReadOnly)) return {};
    return QString::fromUtf8(f.readAll());
}

void writeText(const QString& path, const QString& text) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(text.toUtf8()) < 0 || !f.commit())
        throw VoiceEngineError("Couldn't write " + path.toStdString() + ".");
}

void removeFile(const QString& path) {
    if (QFile::exists(path) && !QFile::remove(path)) throw VoiceEngineError("Couldn't remove " + path.toStdString() + ".");
}

QString removeBlock(QString text, const QString& begin, const QString& end) {
    for (;;) {
        const int from = text.indexOf(begin);
        if (from < 0) return text;
        int to = text.indexOf(end, from);
        to = to < 0 ? int(text.size()) : text.indexOf('\n', to);
        to = to < 0 ? int(text.size()) : to + 1;
        text.remove(from, to - from);
    }
}

void unloadAll(const std::vector<uint32_t>& modules) {
    for (uint32_t index : modules)
        if (!AudioBackend::system().unloadModule(index))
            throw VoiceEngineError("The sound server refused to unload the virtual mic.");
}

}  // namespace

QString VirtualMic::sinkArguments(const QString& sinkName, const QString& description) {
    return QStringLiteral("sink_name=%1 rate=48000 channels=1 channel_map=mono "
                          "sink_properties=\"device.description='%2' device.class=abstract\"")
        .arg(sinkName, description);
}

QString VirtualMic::sourceArguments(const QString& sinkName, const QString& sourceName, const QString& description) {
    return QStringLiteral("master=%1.monitor source_name=%2 channels=1 channel_map=mono master_channel_map=mono "
                          "source_properties=\"device.description='%3' device.class=sound "
                          "device.form_factor=microphone parlova.loopback.sink=%1\"")
        .arg(sinkName, sourceName, description);
}

QString VirtualMic::pulseConfigPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/pulse/default.pa");
}

QString VirtualMic::pipewireConfigPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/pipewire/pipewire-pulse.conf.d/parlova-mic.conf");
}

QString VirtualMic::formerPipewireConfigPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/pipewire/pipewire-pulse.conf.d/tovix-voice-changer-mic.conf");
}

QString VirtualMic::pulseBlock() {
    return kBegin + QStringLiteral(" (added by Parlova; \"parlova-cli mic remove\" takes it out)\n") +
           QStringLiteral(".nofail\n") +
           QStringLiteral("load-module module-null-sink ") + sinkArguments(kSinkName, kName) + '\n' +
           QStringLiteral("load-module module-remap-source ") + sourceArguments(kSinkName, kSourceName, kName) + '\n' +
           QStringLiteral(".fail\n") + kEnd + '\n';
}

QString VirtualMic::withPulseBlock(const QString& existing, bool fileExists) {
    QString text = fileExists ? removeBlock(removeBlock(existing, kBegin, kEnd), kFormerBegin, kFormerEnd) : kCreatedHeader;
    if (!text.isEmpty() && !text.endsWith('\n')) text += '\n';
    return text + pulseBlock();
}

QString VirtualMic::withoutPulseBlocks(const QString& text) {
    const QString rest = removeBlock(removeBlock(text, kBegin, kEnd), kFormerBegin, kFormerEnd);
    if (rest == kCreatedHeader || rest.trimmed().isEmpty()) return {};
    return rest;
}

QString VirtualMic::pipewireDropIn() {
    auto escape = [](QString s) { return s.replace('\\', QStringLiteral("\\\\")).replace('"', QStringLiteral("\\\"")); };
    return QStringLiteral("# Parlova Mic: added by Parlova; \"parlova-cli mic remove\" takes it out.\n"
                          "pulse.cmd = [\n"
                          "    { cmd = \"load-module\" args = \"module-null-sink %1\" flags = [ \"nofail\" ] }\n"
                          "    { cmd = \"load-module\" args = \"module-remap-source %2\" flags = [ \"nofail\" ] }\n"
                          "]\n")
        .arg(escape(sinkArguments(kSinkName, kName)), escape(sourceArguments(kSinkName, kSourceName, kName)));
}

void VirtualMic::install() {
    auto& control = AudioBackend::system();
    const auto modules = control.modules();
    if (!modules) throw VoiceEngineError(ErrorCode::serverUnreachable);
    const std::string server = control.serverName();
    const Loaded loaded = loadedModules(*modules);
    // Reinstalling is the update: the running copy and the former device go first.
    unloadAll(loaded.current);
    unloadAll(loaded.former);
    int error = 0;
    const auto sink = control.loadModule("module-null-sink", sinkArguments(kSinkName, kName).toStdString(), &error);
    if (!sink) throw statusError("load the virtual mic's output into the sound server", error);
    if (!control.loadModule("module-remap-source", sourceArguments(kSinkName, kSourceName, kName).toStdString(), &error)) {
        control.unloadModule(*sink);
        throw statusError("load the virtual mic into the sound server", error);
    }
    if (isPipewire(server)) {
        writeText(pipewireConfigPath(), pipewireDropIn());
        removeFile(formerPipewireConfigPath());
    } else {
        bool exists = false;
        const QString path = pulseConfigPath();
        const QString text = readText(path, &exists);
        writeText(path, withPulseBlock(text, exists));
    }
}

void VirtualMic::uninstall() {
    auto& control = AudioBackend::system();
    const auto modules = control.modules();
    if (!modules) throw VoiceEngineError(ErrorCode::serverUnreachable);
    const Loaded loaded = loadedModules(*modules);
    unloadAll(loaded.current);
    unloadAll(loaded.former);
    removeFile(pipewireConfigPath());
    removeFile(formerPipewireConfigPath());
    bool exists = false;
    const QString path = pulseConfigPath();
    const QString text = readText(path, &exists);
    if (!exists) return;
    const QString rest = withoutPulseBlocks(text);
    if (rest == text) return;
    if (rest.isEmpty())
        removeFile(path);
    else
        writeText(path, rest);
}

VirtualMic::Status VirtualMic::status() {
    Status s;
    auto& control = AudioBackend::system();
    const auto modules = control.modules();
    s.serverReachable = modules.has_value();
    s.pipewire = isPipewire(s.serverReachable ? control.serverName() : std::string());
    if (modules) {
        const Loaded loaded = loadedModules(*modules);
        s.loaded = loaded.current.size() >= 2;
        s.formerPresent = !loaded.former.empty();
    }
    bool exists = false;
    const QString pulseText = readText(pulseConfigPath(), &exists);
    const bool inPulse = pulseText.contains(kBegin);
    const bool inPipewire = QFile::exists(pipewireConfigPath());
    s.persisted = s.pipewire ? inPipewire : inPulse;
    s.configPath = s.pipewire ? pipewireConfigPath() : pulseConfigPath();
    s.formerPresent = s.formerPresent || pulseText.contains(kFormerBegin) || QFile::exists(formerPipewireConfigPath());
    return s;
}

VirtualMicSetup::VirtualMicSetup(AudioDeviceList* devices, QObject* parent) : QObject(parent), devices_(devices) {
    timer_.setSingleShot(true);
    connect(&timer_, &QTimer::timeout, this, &VirtualMicSetup::poll);
}

void VirtualMicSetup::setInstalling(bool on) {
    if (installing_ == on) return;
    installing_ = on;
    emit installingChanged();
}

void VirtualMicSetup::install() {
    if (installing_) return;
    setInstalling(true);
    // Loading modules waits on the server: the job thread does it.
    BackendJobs::shared().request(
        this,
        []() -> QString {
            try {
                VirtualMic::install();
                return VirtualMic::status().loaded ? QString() : QStringLiteral("-");
            } catch (const VoiceEngineError& e) {
                return QStringLiteral("Couldn't install the virtual mic: ") + QString::fromStdString(e.errorDescription());
            }
        },
        [this](const QString& outcome) {
            if (!outcome.isEmpty()) {  // failed, or nothing happened: nothing to wait for
                setInstalling(false);
                if (outcome != QStringLiteral("-")) emit errorMessage(outcome);
                emit finished();
                return;
            }
            polls_ = 0;
            timer_.start(pollMs_);
        });
}

void VirtualMicSetup::poll() {
    ++polls_;
    devices_->refresh();
    auto cable = devices_->virtualCable();
    const bool shown = cable && cable->name == QStringLiteral("Parlova Mic");
    if (!shown && polls_ < kMaxPolls) {
        timer_.start(pollMs_);
        return;
    }
    setInstalling(false);
    cable = devices_->virtualCable();
    if (!cable || cable->name != QStringLiteral("Parlova Mic"))
        emit errorMessage(QStringLiteral(
            "The virtual mic was installed but the sound server hasn't loaded it yet. Try logging out and back in."));
    emit finished();
}

void VirtualMicSetup::remove() {
    BackendJobs::shared().request(
        this,
        []() -> QString {
            try {
                VirtualMic::uninstall();
                return {};
            } catch (const VoiceEngineError& e) {
                return QStringLiteral("Couldn't remove the virtual mic: ") + QString::fromStdString(e.errorDescription());
            }
        },
        [this](const QString& failure) {
            if (!failure.isEmpty()) emit errorMessage(failure);
            QTimer::singleShot(refreshMs_, this, [this] {
                devices_->refresh();
                emit finished();
            });
        });
}

}  // namespace parlova
