#include "ui/Autostart.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace parlova::ui {

namespace {

QString autostartFolder() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/autostart";
}

// Earlier versions named the entry after the program.
QString formerEntryPath() { return autostartFolder() + "/parlova.desktop"; }

QString removeIfPresent(const QString& path) {
    if (QFile::exists(path) && !QFile::remove(path))
        return QString("Parlova couldn't remove \u201c%1\u201d.").arg(path);
    return {};
}

}  // namespace

QString autostartEntryPath() { return autostartFolder() + "/" PARLOVA_APP_ID ".desktop"; }

bool autostartEnabled() { return QFileInfo::exists(autostartEntryPath()) || QFileInfo::exists(formerEntryPath()); }

QString setAutostartEnabled(bool on, const QString& executable) {
    if (QString error = removeIfPresent(formerEntryPath()); !error.isEmpty()) return error;
    const QString path = autostartEntryPath();
    if (!on) return removeIfPresent(path);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return QString("Parlova couldn't write \u201c%1\u201d: %2.").arg(path, file.errorString());
    // Exec quotes the path as the desktop entry format asks for paths with spaces.
    QString quoted = executable;
    quoted.replace('\\', "\\\\").replace('"', "\\\"");
    file.write(QString("[Desktop Entry]\nType=Application\nName=Parlova\nComment=Voice changer\n"
                       "Exec=\"%1\" --minimized\nIcon=" PARLOVA_APP_ID "\nTerminal=false\nX-GNOME-Autostart-enabled=true\n")
                   .arg(quoted)
                   .toUtf8());
    if (!file.commit()) return QString("Parlova couldn't write \u201c%1\u201d: %2.").arg(path, file.errorString());
    return {};
}

}  // namespace parlova::ui
