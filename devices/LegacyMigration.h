#pragma once
// The one-time carry-over from the application's former name, "Tovix Voice
// Changer": its settings keys that Parlova does not have yet are copied over,
// its data folder is moved into Parlova's place (with the absolute paths inside
// the moved Python environment repaired), and a flag in Parlova's own settings
// records that this was done, so it is attempted exactly once per user account.
//
// Nothing is ever overwritten or deleted: a key Parlova already has keeps its
// value, and an existing Parlova data folder is left as it is (the former
// folder then stays where it was). No failure is reported; each step that
// cannot be done is skipped and the flag is set all the same.
//
// It runs at start-up, after the Qt application's organisation and
// application names are set and before any object reads a setting or a file.
#include <QString>

class QSettings;

namespace parlova {

class LegacyMigration {
public:
    // The flag in Parlova's own settings: true once the migration has run.
    static constexpr const char* kFlagKey = "migratedFromTovixVoiceChanger";
    // Where the former application kept its settings on Linux (QSettings
    // organisation and application names, native format, user scope).
    static constexpr const char* kFormerOrganization = "Tovix";
    static constexpr const char* kFormerApplication = "Tovix Voice Changer";
    // The former data folder: a sibling of Parlova's with this name.
    static constexpr const char* kFormerFolderName = "TovixVoiceChanger";

    // Migrates with the application's standard settings (QSettings() under the
    // application's names), the former application's settings and the user's
    // data folders. Cheap (one settings read) once it has run.
    static void run();

    // The same with everything given explicitly: `current` receives the keys
    // and the flag; `former` is only read. `supportDirectory` is Parlova's data
    // folder (the former one is its sibling); `labDirectory` holds the cloning
    // lab whose ".venv/lib" gets its paths repaired after a move.
    static void run(QSettings& current, const QSettings& former, const QString& supportDirectory,
                    const QString& labDirectory);

    // Parlova's data folder (~/.local/share/Parlova) and the lab inside it.
    static QString supportDirectory();
    static QString labDirectory(const QString& supportDirectory);
    // The former data folder for a given Parlova data folder.
    static QString formerSupportDirectory(const QString& supportDirectory);

private:
    static void moveSupportFolder(const QString& supportDirectory, const QString& labDirectory);
    static void repairPaths(const QString& venvLib, const QString& formerPath, const QString& newPath);
};

}  // namespace parlova
