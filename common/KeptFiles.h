#pragma once
// The user's files the program keeps (the cloned-voice library, the
// soundboard): a damaged one is moved aside for the user, never overwritten,
// and a new one replaces the old whole or not at all.
#include <QByteArray>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QString>

namespace parlova::keptFiles {

// Moves `path` to "<stem>-<seconds since the epoch>.json" beside it (a name
// taken in the same second gets a suffix rather than replacing the earlier
// one). Returns where it went, empty when it couldn't be moved.
inline QString moveAside(const QString& path, const QString& stem) {
    const QString base = QFileInfo(path).dir().filePath(stem + "-" + QString::number(QDateTime::currentSecsSinceEpoch()));
    QString aside = base + ".json";
    for (int n = 2; QFileInfo::exists(aside); ++n) aside = base + "-" + QString::number(n) + ".json";
    return QFile::rename(path, aside) ? aside : QString();
}

// Writes `bytes` as the whole of `path` (through a temporary file and a
// rename), making its folder first. False when any step failed.
inline bool writeWhole(const QString& path, const QByteArray& bytes) {
    QSaveFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) && file.write(bytes) >= 0 &&
           file.commit();
}

}  // namespace parlova::keptFiles
