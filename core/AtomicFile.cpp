#include "core/AtomicFile.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

bool fail(QString* error, const QString& what, int err) {
    if (error)
        *error = what + u": "_s + QString::fromLocal8Bit(std::strerror(err));
    return false;
}

} // namespace

bool WriteFileAtomically(const QString& path, QByteArrayView data, unsigned mode, QString* error,
                         bool flush) {
    const QByteArray target = QFile::encodeName(path);
    QByteArray temp = target + '.' + QByteArray::number(getpid()) + ".XXXXXX.tmp";
    int fd = mkstemps(temp.data(), 4);
    if (fd < 0)
        return fail(error, path, errno);
    // mkstemps creates 0600; widen or keep it as asked.
    if (fchmod(fd, mode) != 0) {
        int err = errno;
        close(fd);
        unlink(temp.constData());
        return fail(error, path, err);
    }
    const char* p = data.data();
    qsizetype left = data.size();
    while (left > 0) {
        ssize_t n = write(fd, p, static_cast<size_t>(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            int err = n < 0 ? errno : ENOSPC;
            close(fd);
            unlink(temp.constData());
            return fail(error, path, err);
        }
        p += n;
        left -= n;
    }
    int err = !flush || fsync(fd) == 0 ? 0 : errno;
    if (close(fd) != 0 && err == 0)
        err = errno;
    if (err != 0) {
        unlink(temp.constData());
        return fail(error, path, err);
    }
    if (rename(temp.constData(), target.constData()) != 0) {
        err = errno;
        unlink(temp.constData());
        return fail(error, path, err);
    }
    return true;
}

bool SyncFileSystem(const QString& path, QString* error) {
    const int fd = open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return fail(error, path, errno);
    const int err = syncfs(fd) == 0 ? 0 : errno;
    close(fd);
    return err == 0 || fail(error, path, err);
}
