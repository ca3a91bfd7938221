#include "ui/Autostart.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace parlova::ui {

QString autostartEntryPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/autostart/parlova.desktop";
}

bool autostartEnabled() { return QFileInfo::exists(autostartEntryPath()); }

QString setAutostartEnabled(bool on, const QString& executable) {
    const QString path = autostartEntryPath();
    if (!on) {
        if (QFile::exists(path) && !QFile::remove(path))
            return QString("Parlova couldn't remove \u201c%1\u201d.").arg(path);
        return {};
    }
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return QString("Parlova couldn't write \u201c%1\u201d: %2.").arg(path, file.errorString());
    // Exec quotes the path as the desktop entry format asks for paths with spaces.
    QString quoted = executable;
    quoted.replace('\\', "\\\\").replace('"', "\\\"");
    file.write(QString("[Desktop Entry]\nType=Application\nName=Parlova\nComment=Voice changer\n"
                       "Exec=\"%1\" --minimized\nIcon=parlova\nTerminal=false\nX-GNOME-Autostart-enabled=true\n")
                   .arg(quoted)
                   .toUtf8());
    if (!file.commit()) return QString("Parlova couldn't write \u201c%1\u201d: %2.").arg(path, file.errorString());
    return {};
}

}  // namespace parlova::ui
