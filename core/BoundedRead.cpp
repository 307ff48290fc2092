#include "core/BoundedRead.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
BoundedRead Failure(int err, int fd = -1) {
    if (fd >= 0)
        ::close(fd);
    BoundedRead r;
    r.result = err == ENOENT ? BoundedRead::Missing : BoundedRead::Failed;
    r.errnum = err;
    r.error = QString::fromLocal8Bit(std::strerror(err));
    return r;
}
} // namespace

BoundedRead ReadBounded(const QString& path, qsizetype limit, BoundedReadOptions options) {
    int flags = O_RDONLY | O_CLOEXEC;
    if (options.noFollow)
        flags |= O_NOFOLLOW;
    // Opening a pipe would wait for a writer; a plain file never does.
    if (options.plainOnly)
        flags |= O_NONBLOCK;
    const int fd = ::open(QFile::encodeName(path).constData(), flags);
    if (fd < 0)
        return Failure(errno);
    struct stat st {};
    if (::fstat(fd, &st) != 0)
        return Failure(errno, fd);
    BoundedRead r;
    if (options.plainOnly && !S_ISREG(st.st_mode)) {
        r.result = BoundedRead::NotPlain;
        ::close(fd);
        return r;
    }
    // The size is a hint for the buffer only: the reads below decide.
    const qsizetype wanted = options.prefix ? limit : limit + 1;
    if (S_ISREG(st.st_mode) && st.st_size > 0)
        r.bytes.reserve(qsizetype(std::min<qint64>(st.st_size, wanted)));
    char buffer[64 * 1024];
    while (r.bytes.size() < wanted) {
        const ssize_t n =
            ::read(fd, buffer, size_t(std::min<qsizetype>(sizeof buffer, wanted - r.bytes.size())));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return Failure(errno, fd);
        if (n == 0)
            break;
        r.bytes.append(buffer, n);
    }
    ::close(fd);
    if (r.bytes.size() > limit) {
        r.bytes = QByteArray();
        r.result = BoundedRead::TooLarge;
        return r;
    }
    r.result = BoundedRead::Ok;
    return r;
}
