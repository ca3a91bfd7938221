#include "cloning/CloneSetup.h"

#include "cloning/LabSource.h"
#include "cloning/VoiceCloner.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

namespace parlova {

namespace {

// What the lab needs of the worker's folder: the project, its lock and the
// program. A development tree's environment, caches and test runner, and an
// installed copy's lack of them, make no difference to the copy or the key.
bool isWorkerFile(const QString& relativePath) {
    static const QStringList kTopLevel{"pyproject.toml", "uv.lock", "README.md", "clone_worker.py", "parlova_worker"};
    const QStringList parts = relativePath.split('/');
    if (!kTopLevel.contains(parts.first())) return false;
    for (const QString& part : parts)
        if (part.startsWith('.') || part == "__pycache__" || part.endsWith(".pyc") || part.endsWith(".egg-info"))
            return false;
    return true;
}

QStringList topLevelWorkerEntries(const QString& folder) {
    QStringList entries;
    for (const QString& name : QDir(folder).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name))
        if (isWorkerFile(name)) entries.append(name);
    return entries;
}

// The script's exit status when another setup holds the lock.
constexpr int kBusyExitCode = 75;

QString readFirstLine(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return {};
    return QString::fromUtf8(file.readLine()).trimmed();
}

}  // namespace

QString installedWorkerFolder() {
    QStringList candidates;
    if (QCoreApplication::instance())
        candidates.append(QCoreApplication::applicationDirPath() + "/../share/parlova/worker");
    candidates.append(QStringLiteral(PARLOVA_BUILT_FROM "/worker"));
    for (const QString& folder : candidates)
        if (QFileInfo::exists(folder + "/clone_worker.py") && QFileInfo::exists(folder + "/uv.lock"))
            return QDir(folder).canonicalPath();
    return {};
}

QString workerFilesKey(const QString& folder) {
    QCryptographicHash digest(QCryptographicHash::Sha256);
    QStringList files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString relative = QDir(folder).relativeFilePath(it.next());
        if (isWorkerFile(relative)) files.append(relative);
    }
    files.sort();
    for (const QString& relative : files) {
        QFile file(QDir(folder).filePath(relative));
        if (!file.open(QIODevice::ReadOnly)) continue;
        digest.addData(relative.toUtf8());
        digest.addData(QByteArrayView("\0", 1));
        digest.addData(&file);
    }
    return QStringLiteral(PARLOVA_VERSION "-") + QString::fromLatin1(digest.result().toHex().left(16));
}

QString readyKey(const QString& labDirectory) { return readFirstLine(QDir(labDirectory).filePath(".ready")); }

SetupPlan SetupPlan::forSupportDirectory(const QString& supportDirectory, const QProcessEnvironment& environment) {
    SetupPlan plan;
    plan.supportDirectory = supportDirectory;
    plan.labDirectory = QDir(supportDirectory).filePath("voice-lab");
    plan.extra = environment.value("PARLOVA_LAB_EXTRA", "torch");
    plan.repository = environment.value("PARLOVA_LAB_REPOSITORY");
    if (!plan.repository.isEmpty()) {
        plan.revision = environment.value("PARLOVA_LAB_REVISION", "HEAD");
        plan.key = "git-" + plan.revision;
    } else {
        plan.workerSource = installedWorkerFolder();
        if (!plan.workerSource.isEmpty()) plan.key = workerFilesKey(plan.workerSource);
    }
    plan.key += "-" + plan.extra;
    plan.uv = findTool("uv", environment);
    return plan;
}

QString SetupPlan::privateUvDirectory() const { return QDir(supportDirectory).filePath("uv"); }

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

QStringList missingToolHints(const SetupPlan& plan, const QProcessEnvironment& environment) {
    QStringList hints;
    if (!plan.repository.isEmpty() && findTool("git", environment).isEmpty()) hints.append("git (sudo apt install git)");
    // Without uv on the desktop, python3 makes the private one.
    if (plan.uv.isEmpty() && !QFileInfo(plan.privateUvDirectory() + "/bin/uv").isExecutable() &&
        findTool("python3", environment).isEmpty())
        hints.append("python3 (sudo apt install python3 python3-venv)");
    if (findTool("ffmpeg", environment).isEmpty()) hints.append("ffmpeg (sudo apt install ffmpeg)");
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
    auto inLab = [&](const QString& name) { return shellQuoted(QDir(plan.labDirectory).filePath(name)); };
    QStringList lines{
        "set -e", "mkdir -p " + shellQuoted(plan.supportDirectory) + " " + lab,
        // One setup at a time per support folder, whichever process started
        // it; the lock goes with the shell, so a setup whose app was killed
        // still holds it until it has finished.
        "exec 9>>" + shellQuoted(QDir(plan.supportDirectory).filePath("voice-lab.lock")),
        "if ! flock -n 9; then exit " + QString::number(kBusyExitCode) + "; fi",
        // Whatever happens next, the lab is not current until the sync finishes.
        "rm -f " + inLab(".ready")};

    QString uv = shellQuoted(plan.uv);
    if (plan.uv.isEmpty()) {
        // Made under a temporary name and renamed when complete, so a failed
        // or interrupted download leaves nothing that looks installed.
        const QString dir = plan.privateUvDirectory();
        const QString partial = shellQuoted(dir + ".partial");
        uv = shellQuoted(dir + "/bin/uv");
        lines << "if [ ! -x " + uv + " ]; then"
              << "  echo " + shellQuoted(QString::fromUtf8(kSetupUvStatus))
              << "  if ! python3 -c 'import ensurepip' >/dev/null 2>&1; then echo " +
                     shellQuoted("Python can't make environments here. Install python3-venv (sudo apt install "
                                 "python3-venv) and try again.") +
                     "; exit 1; fi"
              << "  rm -rf " + partial
              << "  python3 -m venv " + partial
              << "  if ! " + shellQuoted(dir + ".partial/bin/python") +
                     " -m pip install --quiet --disable-pip-version-check uv; then rm -rf " + partial + "; echo " +
                     shellQuoted("The uv package manager could not be downloaded. Check the internet connection and "
                                 "try again.") +
                     "; exit 1; fi"
              << "  rm -rf " + shellQuoted(dir) << "  mv " + partial + " " + shellQuoted(dir) << "fi";
    }

    if (!plan.repository.isEmpty()) {
        const QString git = inLab(".git");
        lines << "cd " + lab
              // A clone cut short leaves a repository without a commit: start it again.
              << "if [ -d " + git + " ] && ! git rev-parse --verify --quiet HEAD >/dev/null 2>&1; then rm -rf " + git +
                     "; fi"
              << "if [ ! -d " + git + " ]; then rm -rf " + inLab(".clone") + "; git clone --quiet --no-checkout " +
                     shellQuoted(plan.repository) + " " + inLab(".clone") + "; mv " + inLab(".clone/.git") + " " +
                     git + "; rm -rf " + inLab(".clone") + "; fi"
              // Offline, the checkout already at hand is used.
              << "git fetch --quiet origin || true"
              << "git checkout --quiet --force " + shellQuoted(plan.revision) << "rm -f " + inLab(".source-key");
    } else {
        // The app's own files, copied again when they are not the ones the lab holds.
        const QString worker = inLab("worker");
        QStringList sources;
        for (const QString& entry : topLevelWorkerEntries(plan.workerSource))
            sources.append(shellQuoted(QDir(plan.workerSource).filePath(entry)));
        lines << "if [ \"$(cat " + inLab(".source-key") + " 2>/dev/null)\" != " + shellQuoted(plan.key) + " ]; then"
              << "  rm -f " + inLab(".source-key") << "  mkdir -p " + worker
              << "  find " + worker + " -mindepth 1 -maxdepth 1 ! -name .venv -exec rm -rf {} +"
              << "  cp -R " + sources.join(' ') + " " + worker
              << "  find " + worker + " -name __pycache__ -prune -exec rm -rf {} +"
              << "  chmod -R u+w " + worker
              << "  printf '%s\\n' " + shellQuoted(plan.key) + " > " + inLab(".source-key") << "fi";
    }
    lines << "echo " + shellQuoted(QString::fromUtf8(kSetupRuntimeStatus)) << "cd " + inLab("worker")
          << uv + " sync --frozen --extra " + shellQuoted(plan.extra)
          << "printf '%s\\n' " + shellQuoted(plan.key) + " > " + inLab(".ready");
    return lines.join('\n') + '\n';
}

void VoiceCloner::install() {
    if (state_ == State::installing || setup_) return;
    const SetupPlan plan = SetupPlan::forSupportDirectory(supportDirectory_, options_.environment);
    if (plan.repository.isEmpty() && plan.workerSource.isEmpty()) {
        setStatus(QString::fromUtf8(kSetupFilesMissing));
        return;
    }
    const QStringList hints = missingToolHints(plan, options_.environment);
    if (!hints.isEmpty()) {
        setStatus(missingToolsMessage(hints));
        return;
    }
    setState(State::installing);
    setStatus(QString::fromUtf8(kSetupStartStatus));
    setupLastLine_.clear();

    setup_ = new QProcess(this);
    setup_->setProcessChannelMode(QProcess::MergedChannels);
    setup_->setProcessEnvironment(workerEnvironment());
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
    auto finish = [this, lines, drain](int exitCode) {
        if (!setup_) return;
        drain();
        const QString rest = QString::fromUtf8(lines->buffer()).trimmed();
        if (!rest.isEmpty()) setupLastLine_ = rest;
        setup_->deleteLater();
        setup_ = nullptr;
        if (exitCode == kBusyExitCode) {
            setState(isInstalled() ? State::ready : State::notInstalled);
            setStatus(QString::fromUtf8(kSetupBusyStatus));
        } else if (exitCode == 0 && isInstalled()) {
            setState(State::ready);
            setStatus(QString::fromUtf8(kSetupDoneStatus));
        } else {
            setState(State::notInstalled);
            setStatus(kSetupFailedPrefix + (setupLastLine_.isEmpty() ? QStringLiteral("the setup script stopped.")
                                                                     : setupLastLine_));
        }
    };
    connect(setup_, &QProcess::finished, this, [finish](int code, QProcess::ExitStatus exitStatus) {
        finish(exitStatus == QProcess::NormalExit ? code : -1);
    });
    connect(setup_, &QProcess::errorOccurred, this, [finish](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) finish(-1);
    });
    setup_->start("/bin/sh", {"-c", setupScript(plan)});
}

}  // namespace parlova
