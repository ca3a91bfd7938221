#include "devices/LegacyMigration.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>
#include <QStringDecoder>

namespace parlova {

QString LegacyMigration::supportDirectory() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Parlova");
}

QString LegacyMigration::labDirectory(const QString& supportDirectory) {
    return QDir(supportDirectory).filePath(QStringLiteral("voice-lab"));
}

QString LegacyMigration::formerSupportDirectory(const QString& supportDirectory) {
    const QFileInfo info(QDir::cleanPath(supportDirectory));
    return QDir(info.path()).filePath(QString::fromLatin1(kFormerFolderName));
}

void LegacyMigration::run() {
    QSettings current;
    if (current.value(kFlagKey).toBool()) return;
    const QSettings former(QSettings::NativeFormat, QSettings::UserScope, QString::fromLatin1(kFormerOrganization),
                           QString::fromLatin1(kFormerApplication));
    const QString support = supportDirectory();
    run(current, former, support, labDirectory(support));
}

void LegacyMigration::run(QSettings& current, const QSettings& former, const QString& supportDirectory,
                          const QString& labDirectory) {
    if (current.value(kFlagKey).toBool()) return;

    // Every former key, whatever its name or type, unless Parlova already has
    // it: settings made in Parlova win. A missing former store has no keys.
    for (const QString& key : former.allKeys()) {
        if (current.contains(key)) continue;
        current.setValue(key, former.value(key));
    }

    moveSupportFolder(supportDirectory, labDirectory);

    // Set whatever happened above: the migration is attempted once, never retried.
    current.setValue(kFlagKey, true);
    current.sync();
}

void LegacyMigration::moveSupportFolder(const QString& supportDirectory, const QString& labDirectory) {
    const QString newPath = QDir::cleanPath(supportDirectory);
    const QString formerPath = formerSupportDirectory(newPath);
    if (!QFileInfo(formerPath).isDir()) return;
    // An existing Parlova folder is never replaced or merged into.
    if (QFileInfo::exists(newPath) || QFileInfo(newPath).isSymLink()) return;
    // One rename: the folders are siblings, so it never copies and cannot leave
    // half a folder behind. A failure leaves both places as they were.
    if (!QDir().rename(formerPath, newPath)) return;

    repairPaths(QDir(labDirectory).filePath(QStringLiteral(".venv/lib")), formerPath, newPath);
}

// The Python environment's ".pth" files and "direct_url.json" records hold
// absolute paths written under the former folder; point them at the new one.
void LegacyMigration::repairPaths(const QString& venvLib, const QString& formerPath, const QString& newPath) {
    if (!QFileInfo(venvLib).isDir()) return;
    QDirIterator it(venvLib, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info = it.fileInfo();
        if (info.suffix() != QLatin1String("pth") && info.fileName() != QLatin1String("direct_url.json")) continue;

        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) continue;
        const QByteArray bytes = file.readAll();
        file.close();
        QStringDecoder decode(QStringDecoder::Utf8);
        QString text = decode(bytes);
        if (decode.hasError()) continue;  // not UTF-8 text: leave it alone
        if (!text.contains(formerPath)) continue;

        text.replace(formerPath, newPath);
        QSaveFile out(path);
        if (!out.open(QIODevice::WriteOnly)) continue;
        out.write(text.toUtf8());
        out.commit();  // a failed write leaves the original file in place
    }
}

}  // namespace parlova
