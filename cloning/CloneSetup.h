#pragma once
// One-step setup of the cloning runtime: a Git checkout of the worker's
// repository pinned to one revision (the one this build came from) in the
// support folder's "voice-lab", and a Python environment made by `uv sync`.
//
// PARLOVA_LAB_REPOSITORY (an address or a path), PARLOVA_LAB_REVISION and
// PARLOVA_LAB_EXTRA (the project extra; "torch" by default) override what the
// build recorded, so setup works offline and in tests.
#include <QProcessEnvironment>
#include <QStringList>

namespace parlova {

struct SetupPlan {
    QString supportDirectory;
    QString labDirectory;
    QString repository;
    QString revision;
    QString extra;

    // The build's repository and revision, with the environment's overrides.
    static SetupPlan forSupportDirectory(const QString& supportDirectory, const QProcessEnvironment& environment);
};

// Folders searched for the tools and prepended to the worker's PATH.
QStringList toolSearchPath(const QProcessEnvironment& environment);
// The PATH value given to child processes.
QString childPath(const QProcessEnvironment& environment);
// The executable named `name` in the search path, empty when none.
QString findTool(const QString& name, const QProcessEnvironment& environment);
// For each of git, uv and ffmpeg that is missing, how to get it.
QStringList missingToolHints(const QProcessEnvironment& environment);
QString missingToolsMessage(const QStringList& hints);

// `text` in double quotes, safe for /bin/sh whatever it holds.
QString shellQuoted(const QString& text);
// The script run by `/bin/sh -c`, one command a line.
QString setupScript(const SetupPlan& plan);

inline constexpr const char* kSetupStartStatus = "Downloading local-voice-cloning-lab…";
inline constexpr const char* kSetupRuntimeStatus = "Installing the speech runtime (a few minutes)…";
inline constexpr const char* kSetupDoneStatus =
    "Installed. The voice model (~3.5 GB) downloads the first time you generate.";
inline constexpr const char* kSetupFailedPrefix = "Installing voice cloning failed: ";

}  // namespace parlova
