#include "cloning/CloneSetup.h"

#include "cloning/LabSource.h"
#include "cloning/VoiceCloner.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>

namespace parlova {

SetupPlan SetupPlan::forSupportDirectory(const QString& supportDirectory, const QProcessEnvironment& environment) {
    SetupPlan plan;
    plan.supportDirectory = supportDirectory;
    plan.labDirectory = QDir(supportDirectory).filePath("voice-lab");
    plan.repository = environment.value("PARLOVA_LAB_REPOSITORY", PARLOVA_LAB_REPOSITORY);
    plan.revision = environment.value("PARLOVA_LAB_REVISION", PARLOVA_LAB_REVISION);
    plan.extra = environment.value("PARLOVA_LAB_EXTRA", "torch");
    return plan;
}

QStringList toolSearchPath(const QProcessEnvironment& environment) {
    QStringList folders{"/usr/local/bin", QDir::homePath() + "/.local/bin", "/usr/bin", "/bin"};
    for (const QString& folder : environment.value("PATH").split(':', Qt::SkipEmptyParts))
        if (!folders.contains(folder)) folders.append(folder);
    return folders;
}

QString childPath(const QProcessEnvironment& environment) { return toolSearchPath(environment).join(':'); }

QString findTool(const QString& name, const QProcessEnvironment& environment) {
    for (const QString& folder : toolSearchPath(environment)) {
        const QFileInfo candidate(QDir(folder).filePath(name));
        if (candidate.isFile() && candidate.isExecutable()) return candidate.absoluteFilePath();
    }
    return {};
}

QStringList missingToolHints(const QProcessEnvironment& environment) {
    const std::pair<const char*, const char*> tools[] = {
        {"git", "git"},
        {"uv", "uv (pipx install uv)"},
        {"ffmpeg", "ffmpeg (sudo apt install ffmpeg)"},
    };
    QStringList hints;
    for (const auto& [name, hint] : tools)
        if (findTool(name, environment).isEmpty()) hints.append(hint);
    return hints;
}

QString missingToolsMessage(const QStringList& hints) {
    return "Voice cloning needs these tools installed first: " + hints.join(", ");
}

QString shellQuoted(const QString& text) {
    QString quoted = "\"";
    for (const QChar c : text) {
        if (c == '"' || c == '\\' || c == '$' || c == '`') quoted.append('\\');
        quoted.append(c);
    }
    return quoted + "\"";
}

QString setupScript(const SetupPlan& plan) {
    const QString lab = shellQuoted(plan.labDirectory);
    const QStringList lines{
        "set -e",
        "mkdir -p " + shellQuoted(plan.supportDirectory),
        // A clone cut short leaves a checkout without a commit: start it again.
        "if [ -d " + lab + " ] && ! git -C " + lab + " rev-parse --verify --quiet HEAD >/dev/null 2>&1; then rm -rf " +
            lab + "; fi",
        "if [ ! -d " + shellQuoted(plan.labDirectory + "/.git") + " ]; then git clone --quiet " +
            shellQuoted(plan.repository) + " " + lab + "; fi",
        "cd " + lab,
        // Offline, the checkout already at hand is used.
        "git fetch --quiet origin || true",
        "git checkout --quiet " + shellQuoted(plan.revision),
        "echo " + shellQuoted(QString::fromUtf8(kSetupRuntimeStatus)),
        "cd worker",
        "uv sync --extra " + shellQuoted(plan.extra),
    };
    return lines.join('\n') + '\n';
}

void VoiceCloner::install() {
    if (state_ == State::installing || setup_) return;
    const QProcessEnvironment environment = workerEnvironment();
    const QStringList hints = missingToolHints(options_.environment);
    if (!hints.isEmpty()) {
        setStatus(missingToolsMessage(hints));
        return;
    }
    setState(State::installing);
    setStatus(QString::fromUtf8(kSetupStartStatus));
    setupLastLine_.clear();

    const SetupPlan plan = SetupPlan::forSupportDirectory(supportDirectory_, options_.environment);
    setup_ = new QProcess(this);
    setup_->setProcessChannelMode(QProcess::MergedChannels);
    setup_->setProcessEnvironment(environment);
    auto lines = std::make_shared<LineSplitter>();
    // Every line the script prints becomes the status as it arrives.
    auto drain = [this, lines] {
        for (const QByteArray& line : lines->append(setup_->readAllStandardOutput())) {
            const QString text = QString::fromUtf8(line).trimmed();
            if (text.isEmpty()) continue;
            setupLastLine_ = text;
            setStatus(text);
        }
    };
    connect(setup_, &QProcess::readyReadStandardOutput, this, drain);
    auto finish = [this, lines, drain](bool succeeded) {
        if (!setup_) return;
        drain();
        const QString rest = QString::fromUtf8(lines->buffer()).trimmed();
        if (!rest.isEmpty()) setupLastLine_ = rest;
        setup_->deleteLater();
        setup_ = nullptr;
        if (succeeded && isInstalled()) {
            setState(State::ready);
            setStatus(QString::fromUtf8(kSetupDoneStatus));
        } else {
            setState(State::notInstalled);
            setStatus(kSetupFailedPrefix + (setupLastLine_.isEmpty() ? QStringLiteral("the setup script stopped.")
                                                                     : setupLastLine_));
        }
    };
    connect(setup_, &QProcess::finished, this, [finish](int code, QProcess::ExitStatus exitStatus) {
        finish(exitStatus == QProcess::NormalExit && code == 0);
    });
    connect(setup_, &QProcess::errorOccurred, this, [finish](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) finish(false);
    });
    setup_->start("/bin/sh", {"-c", setupScript(plan)});
}

}  // namespace parlova
