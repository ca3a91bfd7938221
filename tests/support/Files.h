#pragma once
// Small files written and read whole by tests: settings, libraries, scripts,
// and files that are not what their name says.
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace parlova::testfiles {

// Writes `bytes` to `path`, making its folder first; false when it can't.
inline bool write(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// The whole file, or `missing` when it can't be read.
inline QByteArray read(const QString& path, const QByteArray& missing = {}) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : missing;
}

}  // namespace parlova::testfiles
