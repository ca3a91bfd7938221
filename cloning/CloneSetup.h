#pragma once
// One-step setup of the cloning runtime in the support folder:
//
//   uv/          a private copy of uv (python3's venv + pip) when the desktop
//                has none on its search path
//   voice-lab/   the lab: worker/ holds the worker's files, copied from the
//                ones installed with the app (share/parlova/worker beside the
//                program) or, for a build that is not installed, from the
//                source tree; its Python environment worker/.venv is made by
//                `uv sync --frozen --extra <backend>` from the committed lock
//
// The copy is keyed by the app's version and the files' contents
// (voice-lab/.source-key), so an update refreshes it; voice-lab/.ready holds
// the key of the last sync that finished, and the lab counts as set up only
// when it matches. Every step can be run again: an interrupted setup repairs
// what it left instead of starting over.
//
// PARLOVA_LAB_REPOSITORY (an address or a path) with PARLOVA_LAB_REVISION
// checks out a Git repository at that revision as the lab instead (needs
// git); PARLOVA_LAB_EXTRA picks the project extra ("torch" by default, "test"
// for the tests' offline voice).
#include <QProcessEnvironment>
#include <QStringList>

namespace parlova {

struct SetupPlan {
    QString supportDirectory;
    QString labDirectory;
    QString extra;
    // A Git checkout when repository is not empty, else a copy of workerSource.
    QString repository;
    QString revision;
    QString workerSource;  // empty when neither an installed copy nor the source tree has the files
    QString key;           // what voice-lab/.ready must hold for the lab to be current
    // uv found on the search path; empty: the private copy is made.
    QString uv;

    static SetupPlan forSupportDirectory(const QString& supportDirectory, const QProcessEnvironment& environment);
    QString privateUvDirectory() const;
};

// The worker's files shipped with this program: share/parlova/worker beside
// an installed program, else the source tree's worker/; empty when neither.
QString installedWorkerFolder();
// The app's version and a digest of the worker files in `folder`.
QString workerFilesKey(const QString& folder);
// The key recorded by the last setup that finished in `labDirectory`, empty when none did.
QString readyKey(const QString& labDirectory);

// Folders searched for the tools and prepended to the worker's PATH.
QStringList toolSearchPath(const QProcessEnvironment& environment);
// The PATH value given to child processes.
QString childPath(const QProcessEnvironment& environment);
// The executable named `name` in the search path, empty when none.
QString findTool(const QString& name, const QProcessEnvironment& environment);
// For each tool the plan needs that is missing, how to get it.
QStringList missingToolHints(const SetupPlan& plan, const QProcessEnvironment& environment);
QString missingToolsMessage(const QStringList& hints);

// `text` in double quotes, safe for /bin/sh whatever it holds.
QString shellQuoted(const QString& text);
// The script run by `/bin/sh -c`, one command a line.
QString setupScript(const SetupPlan& plan);

inline constexpr const char* kSetupStartStatus = "Downloading local-voice-cloning-lab…";
inline constexpr const char* kSetupUvStatus = "Installing uv, the Python package manager, into Parlova's folder…";
inline constexpr const char* kSetupRuntimeStatus = "Installing the speech runtime (a few minutes)…";
inline constexpr const char* kSetupDoneStatus =
    "Installed. The voice model (~3.5 GB) downloads the first time you generate.";
inline constexpr const char* kSetupFailedPrefix = "Installing voice cloning failed: ";
inline constexpr const char* kSetupBusyStatus =
    "Voice cloning is already being set up by another Parlova window or command.";
inline constexpr const char* kSetupFilesMissing =
    "The speech runtime's files are missing from this installation of Parlova. Reinstall Parlova and try again.";

}  // namespace parlova
