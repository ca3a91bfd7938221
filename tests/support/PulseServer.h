#pragma once
// The private sound server for integration tests (tests/fixtures/pulse-server.sh),
// started once per test process with this process as its owner, so it stops
// with us even after a crash. Every client in the process is pointed at it
// explicitly; the developer's own sound server and config are never touched.
// Tests that need it carry "Pulse" in their suite name and begin with
// PARLOVA_REQUIRE_PULSE(). With PARLOVA_REQUIRE_PULSE=1 in the environment a
// missing server fails the test instead of skipping it.
#include <QProcess>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace parlova::testpulse {

class PrivateServer {
public:
    static PrivateServer* get();  // nullptr when it cannot run
    static const std::string& unavailableReason();
    static bool required();

    const std::string& dir() const { return dir_; }
    // pactl with its output trimmed; status in *status.
    std::string pactl(const std::string& args, int* status = nullptr) const;
    // Loads a module with pactl (`arguments` as the module gets them); its index, or -1.
    int loadModule(const std::string& module, const std::string& arguments) const;
    // A null sink, and a mono remap source of a sink's monitor (a loopback microphone).
    int nullSink(const std::string& name, const std::string& description, int channels = 2) const;
    int remapSource(const std::string& sink, const std::string& name, const std::string& description) const;
    void unloadModule(int index) const;

private:
    std::string dir_;
};

// "Parlova Mic" as the installer loads it (a null sink and a mono remap of its
// monitor, under the installer's names), without touching any login file;
// unloaded when this goes.
struct VirtualMicModules {
    explicit VirtualMicModules(const PrivateServer& server);
    ~VirtualMicModules();
    const PrivateServer& server;
    int sink, source;
};

// Spins the Qt event loop until `done` or `ms` pass. True when done.
bool waitUntil(const std::function<bool()>& done, int ms);
// Spins the Qt event loop for `ms`.
void pump(int ms);
// The id of the device with this UID, or an id no device has.
uint32_t deviceId(const std::string& uid);
constexpr uint32_t kNoDevice = 0x7ffffff0u;

// Plays a file into the fake microphone ("mic_feed") in real time, once or in a loop.
class MicFeed {
public:
    explicit MicFeed(const std::string& file, bool loop = false);
    ~MicFeed();

private:
    QProcess process_;
};

// Records a source as mono 32-bit float at 48 kHz, as another app would.
class SourceRecorder {
public:
    SourceRecorder(const std::string& source, const std::string& path);
    ~SourceRecorder() { stop(); }
    std::vector<float> stop();

private:
    QProcess process_;
    std::string path_;
};

}  // namespace parlova::testpulse

#define PARLOVA_REQUIRE_PULSE()                                                                              \
    do {                                                                                                     \
        if (!::parlova::testpulse::PrivateServer::get()) {                                                   \
            if (::parlova::testpulse::PrivateServer::required())                                             \
                FAIL() << ::parlova::testpulse::PrivateServer::unavailableReason();                          \
            GTEST_SKIP() << ::parlova::testpulse::PrivateServer::unavailableReason();                        \
        }                                                                                                    \
    } while (0)
