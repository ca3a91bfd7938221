#pragma once
// The clone worker as the tests run it: the real program from the source
// folder in its test environment (worker/.venv, made by worker/run_tests.sh),
// with the offline test voice and the small recogniser that ships in a package.
#include "cloning/CloneLibrary.h"
#include "cloning/VoiceCloner.h"
#include "support/PulseServer.h"

#include <QDir>

#include <functional>

namespace parlova::clonetest {

inline QString workerFolder() { return QStringLiteral(PARLOVA_SOURCE_DIR "/worker"); }

// Why the worker can't run here, empty when it can.
QString workerMissing();

// Options for a cloner running the source folder's worker with the test voice.
VoiceClonerOptions testWorkerOptions(const QString& supportDirectory);
// The environment that selects the test voice and the packaged recogniser.
void addTestWorkerEnvironment(QProcessEnvironment& environment);

// Runs the event loop until `done` holds or a generous limit passes (a stuck
// worker fails the test instead of hanging it).
inline bool waitFor(const std::function<bool()>& done, int limitMs = 180000) {
    return testpulse::waitUntil(done, limitMs);
}

// A voice in `library` with about `seconds` of espeak-ng speech read from
// the practice sentences (with transcripts); empty id when espeak-ng is missing.
QUuid spokenVoice(CloneLibrary& library, const QString& name, double seconds, const QString& scratchFolder);

}  // namespace parlova::clonetest
