#include "engine/SessionLock.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace parlova {

namespace {

struct flock wholeFile(short type) {
    struct flock region {};
    region.l_type = type;
    region.l_whence = SEEK_SET;
    region.l_start = 0;
    region.l_len = 0;  // to the end, whatever the file's length
    region.l_pid = 0;  // required for open-file-description locks
    return region;
}

}  // namespace

QString sessionRuntimePath(const QString& name) {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QDir(runtime).exists()) return runtime + QLatin1Char('/') + name;
    // No runtime folder (a bare root shell, some containers): a private
    // folder of our own in the temporary folder.
    const QString folder = QDir::tempPath() + QStringLiteral("/parlova-%1").arg(getuid());
    ::mkdir(QFile::encodeName(folder).constData(), S_IRWXU);
    return folder + QLatin1Char('/') + name;
}

QByteArray LockHolder::toJson() const {
    return QJsonDocument(QJsonObject{{"pid", pid}, {"who", who}, {"purpose", purpose}, {"control", controlPath}})
        .toJson(QJsonDocument::Compact);
}

LockHolder LockHolder::fromJson(const QByteArray& json) {
    const QJsonObject object = QJsonDocument::fromJson(json).object();
    LockHolder holder;
    holder.pid = object.value("pid").toInteger();
    holder.who = object.value("who").toString();
    holder.purpose = object.value("purpose").toString();
    holder.controlPath = object.value("control").toString();
    return holder;
}

bool SessionLock::tryAcquire(const LockHolder& holder) {
    if (fd_ >= 0) return true;
    const int fd = ::open(QFile::encodeName(path_).constData(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd < 0) return false;
    struct flock region = wholeFile(F_WRLCK);
    if (::fcntl(fd, F_OFD_SETLK, &region) != 0) {
        ::close(fd);
        return false;
    }
    const QByteArray record = holder.toJson();
    // Readers see the old record or the new one, never a mix that parses.
    if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, record.constData(), static_cast<size_t>(record.size()), 0) < 0) {
        // The lock is what counts; a missing record only makes messages vaguer.
    }
    fd_ = fd;
    return true;
}

void SessionLock::release() {
    if (fd_ < 0) return;
    ::close(fd_);  // drops the lock
    fd_ = -1;
}

std::optional<LockHolder> SessionLock::holderOf(const QString& path) {
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;  // nobody ever took it
    struct flock region = wholeFile(F_WRLCK);
    std::optional<LockHolder> holder;
    if (::fcntl(fd, F_OFD_GETLK, &region) == 0 && region.l_type != F_UNLCK) {
        char buffer[2048];
        const ssize_t got = ::pread(fd, buffer, sizeof buffer, 0);
        holder = LockHolder::fromJson(QByteArray(buffer, got > 0 ? static_cast<int>(got) : 0));
    }
    ::close(fd);
    return holder;
}

}  // namespace parlova
