// Setup as a new user meets it: parlova-cli installed into a prefix of its
// own (cmake --install), a desktop without uv, a support folder whose path
// holds spaces, quotes and shell characters; then the Git override, a sync
// that fails, and setups that collide.
#include "cloning/CloneSetup.h"
#include "cloning/CloneWorkerSupport.h"
#include "support/TestAudio.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;
using namespace parlova::clonetest;

namespace {

// A Git repository holding the worker project, as a lab repository does.
QString makeLabRepository(const QString& folder, QString* revision) {
    const std::string repo = folder.toStdString() + "/lab repo";
    const std::string worker = testaudio::shellQuote(workerFolder().toStdString());
    const std::string command =
        "set -e; mkdir -p " + testaudio::shellQuote(repo + "/worker") + "; cd " + testaudio::shellQuote(repo) +
        "; for f in pyproject.toml uv.lock README.md clone_worker.py parlova_worker; do cp -r " + worker +
        "/$f worker/; done; git init -q; git add -A; git -c user.name=Lab -c user.email=lab@localhost commit -qm lab";
    if (testaudio::runQuiet(command) != 0) return {};
    std::string head;
    testaudio::runCapture("git -C " + testaudio::shellQuote(repo) + " rev-parse HEAD", &head);
    *revision = QString::fromStdString(head).trimmed();
    return QString::fromStdString(repo);
}

bool finishedInstalling(const VoiceCloner& cloner) { return cloner.state() != VoiceCloner::State::installing; }

QString firstLine(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readLine()).trimmed() : QString();
}

}  // namespace

TEST(CloneSetupTest, InstalledCopySetsUpWithAPrivateUvThenAGitCheckoutRefusesSecondSetups) {
    const QProcessEnvironment system = QProcessEnvironment::systemEnvironment();
    if (findTool("ffmpeg", system).isEmpty() || findTool("git", system).isEmpty()) GTEST_SKIP() << "setup needs ffmpeg and git";
    QTemporaryDir dir;
    const QString prefix = dir.filePath("prefix");
    ASSERT_EQ(testaudio::runQuiet("cmake --install " + testaudio::shellQuote(PARLOVA_BUILD_DIR) + " --prefix " +
                                  testaudio::shellQuote(prefix.toStdString())),
              0);
    ASSERT_TRUE(QFileInfo::exists(prefix + "/share/parlova/worker/uv.lock"));
    EXPECT_FALSE(QFileInfo::exists(prefix + "/share/parlova/worker/.venv"));

    const QString data = dir.filePath(R"(data "quoted" 'single' $HOME `x` \ end)");
    const QString support = data + "/Parlova";
    QProcessEnvironment environment = system;
    environment.insert("XDG_DATA_HOME", data);
    environment.insert("XDG_CONFIG_HOME", dir.filePath("config"));
    environment.insert("PARLOVA_LAB_EXTRA", "test");
    const bool desktopHasUv = !findTool("uv", environment).isEmpty();

    // The installed tool, run from elsewhere, sets up from its own files.
    QProcess setup;
    setup.setProcessEnvironment(environment);
    setup.setWorkingDirectory(dir.path());
    setup.setProcessChannelMode(QProcess::MergedChannels);
    setup.start(prefix + "/bin/parlova-cli", {"clone", "setup"});
    ASSERT_TRUE(setup.waitForStarted());
    {  // A second setup while that one runs is refused, and leaves it alone.
        ASSERT_TRUE(waitFor([&] { return QFileInfo::exists(support + "/voice-lab.lock"); }, 30000));
        QProcessEnvironment second = environment;
        addTestWorkerEnvironment(second);
        VoiceClonerOptions options;
        options.supportDirectory = support;
        options.environment = second;
        VoiceCloner cloner(options);
        cloner.install();
        ASSERT_TRUE(waitFor([&] { return finishedInstalling(cloner); }));
        EXPECT_EQ(cloner.status(), QString::fromUtf8(kSetupBusyStatus));
    }
    ASSERT_TRUE(setup.waitForFinished(600000));
    const QString said = QString::fromUtf8(setup.readAll());
    ASSERT_EQ(setup.exitCode(), 0) << said.toStdString();
    EXPECT_TRUE(said.contains(QString::fromUtf8(kSetupDoneStatus))) << said.toStdString();
    if (!desktopHasUv) {
        EXPECT_TRUE(said.contains(QString::fromUtf8(kSetupUvStatus))) << said.toStdString();
        EXPECT_TRUE(QFileInfo(support + "/uv/bin/uv").isExecutable());
        EXPECT_FALSE(QFileInfo::exists(support + "/uv.partial"));
    }
    EXPECT_TRUE(QFileInfo::exists(support + "/voice-lab/worker/clone_worker.py"));

    // This build's own cloner agrees that the lab is current, and its worker runs.
    addTestWorkerEnvironment(environment);
    VoiceClonerOptions options;
    options.supportDirectory = support;
    options.environment = environment;
    {
        VoiceCloner cloner(options);
        ASSERT_EQ(cloner.state(), VoiceCloner::State::ready);
        QString started = "not yet";
        cloner.startWorkerIfNeeded([&](const QString& e) { started = e; });
        ASSERT_TRUE(waitFor([&] { return started != "not yet"; }));
        EXPECT_EQ(started, "");
    }

    // The Git override over the copied lab, whose uv comes from the support folder now.
    QString revision;
    const QString repository = makeLabRepository(dir.path(), &revision);
    ASSERT_FALSE(repository.isEmpty());
    environment.insert("PARLOVA_LAB_REPOSITORY", repository);
    environment.insert("PARLOVA_LAB_REVISION", revision);
    {  // A sync that fails ends not set up, with the last line printed.
        environment.insert("PARLOVA_LAB_EXTRA", "nosuchextra");
        options.environment = environment;
        VoiceCloner cloner(options);
        EXPECT_EQ(cloner.state(), VoiceCloner::State::notInstalled);  // set up for other files
        QStringList statuses;
        QObject::connect(&cloner, &VoiceCloner::statusChanged, [&] { statuses << cloner.status(); });
        cloner.install();
        EXPECT_EQ(cloner.state(), VoiceCloner::State::installing);
        ASSERT_TRUE(waitFor([&] { return finishedInstalling(cloner); }));
        EXPECT_EQ(cloner.state(), VoiceCloner::State::notInstalled);
        EXPECT_EQ(statuses.value(0), QString::fromUtf8(kSetupStartStatus));
        EXPECT_TRUE(statuses.contains(QString::fromUtf8(kSetupRuntimeStatus)));
        EXPECT_TRUE(cloner.status().startsWith(kSetupFailedPrefix));
        EXPECT_TRUE(cloner.status().contains("nosuchextra")) << cloner.status().toStdString();
    }
    environment.insert("PARLOVA_LAB_EXTRA", "test");
    options.environment = environment;
    {
        VoiceCloner cloner(options);
        cloner.install();
        ASSERT_TRUE(waitFor([&] { return finishedInstalling(cloner); }));
        ASSERT_EQ(cloner.state(), VoiceCloner::State::ready) << cloner.status().toStdString();
        EXPECT_EQ(cloner.status(), QString::fromUtf8(kSetupDoneStatus));
        std::string head;
        testaudio::runCapture("git -C " + testaudio::shellQuote((support + "/voice-lab").toStdString()) + " rev-parse HEAD", &head);
        EXPECT_EQ(QString::fromStdString(head).trimmed(), revision);
    }

    // Again with the repository gone: the fetch fails, nothing is cloned, and
    // the checkout at hand is used.
    environment.insert("PARLOVA_LAB_REPOSITORY", dir.filePath("gone"));
    options.environment = environment;
    VoiceCloner again(options);
    EXPECT_EQ(again.state(), VoiceCloner::State::ready);
    again.install();
    ASSERT_TRUE(waitFor([&] { return finishedInstalling(again); }));
    EXPECT_EQ(again.state(), VoiceCloner::State::ready) << again.status().toStdString();
    EXPECT_EQ(firstLine(support + "/voice-lab/.ready"), SetupPlan::forSupportDirectory(support, environment).key);
}
