// Setup against a local lab repository with the real git and uv, in a support
// folder whose path holds spaces, quotes and shell characters.
#include "cloning/CloneSetup.h"
#include "cloning/CloneWorkerSupport.h"
#include "support/TestAudio.h"

#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace parlova;
using namespace parlova::clonetest;

namespace {

// A Git repository holding the worker project, as the lab's repository does.
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

}  // namespace

TEST(CloneSetupTest, InstallsFromALocalRepositoryFailsVisiblyAndDoesNotCloneTwice) {
    const QProcessEnvironment system = QProcessEnvironment::systemEnvironment();
    if (findTool("uv", system).isEmpty() || findTool("git", system).isEmpty() || findTool("ffmpeg", system).isEmpty())
        GTEST_SKIP() << "setup needs git, uv and ffmpeg";
    QTemporaryDir dir;
    QString revision;
    const QString repository = makeLabRepository(dir.path(), &revision);
    ASSERT_FALSE(repository.isEmpty());

    VoiceClonerOptions options;
    options.supportDirectory = dir.filePath(R"(Support "quoted" 'single' $HOME `x` \ end/Parlova)");
    options.environment.insert("PARLOVA_LAB_REPOSITORY", repository);
    options.environment.insert("PARLOVA_LAB_REVISION", revision);
    addTestWorkerEnvironment(options.environment);

    // A checkout left by an interrupted first setup.
    ASSERT_EQ(testaudio::runQuiet("git init -q " + testaudio::shellQuote((options.supportDirectory + "/voice-lab").toStdString())), 0);

    {  // A sync that fails ends where it began, with the last line printed.
        options.environment.insert("PARLOVA_LAB_EXTRA", "nosuchextra");
        VoiceCloner cloner(options);
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

    options.environment.insert("PARLOVA_LAB_EXTRA", "test");
    VoiceCloner cloner(options);
    cloner.install();
    ASSERT_TRUE(waitFor([&] { return finishedInstalling(cloner); }));
    ASSERT_EQ(cloner.state(), VoiceCloner::State::ready) << cloner.status().toStdString();
    EXPECT_EQ(cloner.status(), QString::fromUtf8(kSetupDoneStatus));
    EXPECT_TRUE(QFileInfo(cloner.interpreter()).isExecutable());
    EXPECT_EQ(cloner.workerScriptPath(), cloner.labDirectory() + "/worker/clone_worker.py");

    // The worker starts from the lab just set up.
    QString started = "not yet";
    cloner.startWorkerIfNeeded([&](const QString& e) { started = e; });
    ASSERT_TRUE(waitFor([&] { return started != "not yet"; }));
    EXPECT_EQ(started, "");

    // A second setup reuses the checkout: the repository is gone and the
    // fetch fails, but nothing is cloned, so it still succeeds.
    options.environment.insert("PARLOVA_LAB_REPOSITORY", dir.filePath("gone"));
    VoiceCloner again(options);
    EXPECT_EQ(again.state(), VoiceCloner::State::ready);
    again.install();
    ASSERT_TRUE(waitFor([&] { return finishedInstalling(again); }));
    EXPECT_EQ(again.state(), VoiceCloner::State::ready) << again.status().toStdString();
}
