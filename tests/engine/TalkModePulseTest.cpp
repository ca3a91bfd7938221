// Push to talk into the virtual mic, end to end: "parlova-cli live --call
// --talk push-to-talk" runs against the private sound server, the key is
// pressed and released with "parlova-cli control", and another client records
// "Parlova Mic": silence, the voice while the key is held, silence again, and
// no click at either edge.
#include "devices/AudioDeviceList.h"
#include "support/PulseServer.h"
#include "support/TestAudio.h"

#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>

using namespace parlova;
using namespace parlova::testpulse;

namespace {

constexpr int kRate = 48000;

struct Cli {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    explicit Cli(const QTemporaryDir& dir) {
        env.insert("XDG_CONFIG_HOME", dir.filePath("config"));
        env.insert("XDG_RUNTIME_DIR", dir.path());
    }
    // Runs "parlova-cli control ..." to the end; its standard output.
    QString control(const QStringList& words) const {
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(PARLOVA_CLI_PATH, QStringList{"control"} + words);
        p.waitForFinished(5000);
        return QString::fromUtf8(p.readAllStandardOutput() + p.readAllStandardError()).trimmed();
    }
};

double largestStep(const std::vector<float>& s, size_t from, size_t to) {
    double step = 0;
    for (size_t i = std::max<size_t>(from, 1); i < std::min(to, s.size()); ++i)
        step = std::max(step, static_cast<double>(std::fabs(s[i] - s[i - 1])));
    return step;
}

}  // namespace

TEST(TalkModePulse, PushToTalkOpensTheVirtualMicOnlyWhileTheKeyIsHeld) {
    PARLOVA_REQUIRE_PULSE();
    PrivateServer& server = *PrivateServer::get();
    server.pactl("set-default-source fake_mic");
    const int sink = server.nullSink("parlova_mic", "Parlova Mic");
    const int source = server.remapSource("parlova_mic", "parlova_mic_source", "Parlova Mic");
    QTemporaryDir dir;
    const std::string feedPath = dir.filePath("sine.wav").toStdString();
    testaudio::writeWav(feedPath, {double(kRate), {testaudio::tone(300, kRate, 14 * kRate, 0.3f)}});
    MicFeed feed(feedPath);

    Cli cli(dir);
    QProcess live;
    live.setProcessEnvironment(cli.env);
    live.start(PARLOVA_CLI_PATH, {"live", "--voice", "Natural", "--call", "--talk", "push-to-talk"});
    ASSERT_TRUE(waitUntil([&] { return cli.control({"status"}).contains("Live: on"); }, 8000))
        << live.readAllStandardError().toStdString();
    EXPECT_TRUE(cli.control({"status"}).contains("Push to talk: hold"));

    SourceRecorder app("parlova_mic_source", dir.filePath("mic.wav").toStdString());
    pump(1500);
    EXPECT_EQ(cli.control({"ptt", "press"}), "Talking.");
    pump(1500);
    cli.control({"ptt", "release"});
    pump(1500);
    const auto heard = app.stop();
    live.terminate();
    live.waitForFinished(5000);
    server.unloadModule(source);
    server.unloadModule(sink);

    ASSERT_GT(heard.size(), static_cast<size_t>(4.0 * kRate));
    const size_t second = kRate, end = heard.size();
    EXPECT_LT(testaudio::toDb(testaudio::rms(heard, 0, second)), -60.0);                     // before the press
    EXPECT_GT(testaudio::toDb(testaudio::rms(heard, end / 2 - second / 4, second / 2)), -20.0);  // held
    EXPECT_LT(testaudio::toDb(testaudio::rms(heard, end - second - second / 10, second)), -60.0);  // released
    // The gain ramps: no sample-to-sample step beyond what the steady tone itself makes.
    const double steady = largestStep(heard, end / 2 - second / 4, end / 2 + second / 4);
    EXPECT_LT(largestStep(heard, 0, end - second / 10), 1.5 * steady);
}
