#include "webserver/FileSender.h"

#include "core/ProgramFolder.h"
#include "webserver/Codecs.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

// Never served, whatever the path: settings, signals, reservations, the
// HTTPS keys and the working files of the program.
bool isPrivate(const QStringList& parts) {
    static const QStringList folders = {u"irsignals"_s, u"reserve"_s, u"testmode"_s, u"unzip"_s,
                                        u"acme"_s};
    static const QStringList suffixes = {u".tmp"_s, u".bat"_s, u".log"_s, u".job"_s, u".lock"_s};
    const QString first = parts.first().toLower();
    if (parts.size() == 1 && first == u"setting.ini")
        return true;
    if (parts.size() > 1 && folders.contains(first))
        return true;
    const QString name = parts.last().toLower();
    for (const QString& s : suffixes)
        if (name.endsWith(s))
            return true;
    return false;
}

// The parts of a request path beneath the folder; none when it is refused
// before looking at the disk.
QStringList servedParts(const QString& requestPath) {
    QString path = requestPath.contains(u'%') ? DecodeValue(requestPath) : requestPath;
    path.replace(u'\\', u'/');
    if (path.contains(QChar(0)))
        return {};
    QStringList parts;
    for (const QString& part : path.split(u'/', Qt::SkipEmptyParts)) {
        if (part == u"..")
            return {};
        if (part != u".")
            parts << part;
    }
    if (parts.isEmpty() || isPrivate(parts))
        return {};
    return parts;
}

// The folder, opened once per folder for lookups beneath it.
int rootDescriptor(const QString& root) {
    static QString openRoot;
    static int fd = -1;
    if (fd < 0 || openRoot != root) {
        if (fd >= 0)
            ::close(fd);
        fd = ::open(QFile::encodeName(root).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        openRoot = root;
    }
    return fd;
}

ServedFile openRegular(int dirFd, const QByteArray& path, int resolve) {
    open_how how{};
    // Non-blocking, so that a pipe someone left in the folder cannot stall the server.
    how.flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    how.resolve = quint64(resolve);
    errno = 0;
    const int fd = resolve ? int(::syscall(SYS_openat2, dirFd, path.constData(), &how, sizeof how))
                           : ::openat(dirFd, path.constData(), int(how.flags));
    if (fd < 0)
        return {};
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return {};
    }
    return ServedFile(fd, st.st_size);
}

} // namespace

ServedFile::ServedFile(ServedFile&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), size_(other.size_) {}

ServedFile& ServedFile::operator=(ServedFile&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = std::exchange(other.fd_, -1);
        size_ = other.size_;
    }
    return *this;
}

ServedFile::~ServedFile() {
    if (fd_ >= 0)
        ::close(fd_);
}

ServedFile OpenServedFile(const ProgramFolder& folder, const QString& requestPath) {
    const QStringList parts = servedParts(requestPath);
    if (parts.isEmpty())
        return {};
    const int root = rootDescriptor(folder.root());
    if (root >= 0) {
        // No link anywhere on the way and never above the folder: one call.
        const QByteArray relative = QFile::encodeName(parts.join(u'/'));
        ServedFile f = openRegular(root, relative, RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS);
        if (f.isOpen() || (errno != ELOOP && errno != ENOSYS && errno != EXDEV))
            return f;
    }
    // A link on the way (or an old kernel): resolved and checked in full.
    const QString real = ResolveFilePath(folder, requestPath);
    return real.isEmpty() ? ServedFile() : openRegular(AT_FDCWD, QFile::encodeName(real), 0);
}

QString ResolveFilePath(const ProgramFolder& folder, const QString& requestPath) {
    const QStringList parts = servedParts(requestPath);
    if (parts.isEmpty())
        return {};

    const QString candidate = folder.path(parts.join(u'/'));
    QFileInfo info(candidate);
    if (!info.isFile())
        return {};
    // A link must not lead out of the folder, nor into a private part of it.
    // The folder's real path is asked for once per folder, not per request.
    static QString lastRoot, lastCanonical;
    if (lastRoot != folder.root() || lastCanonical.isEmpty()) {
        lastRoot = folder.root();
        lastCanonical = QFileInfo(folder.root()).canonicalFilePath();
    }
    const QString& root = lastCanonical;
    const QString real = info.canonicalFilePath();
    if (root.isEmpty() || !real.startsWith(root + u'/'))
        return {};
    if (real != candidate && isPrivate(real.mid(root.size() + 1).split(u'/')))
        return {};
    return real;
}

QString ContentTypeLines(const QString& requestPath) {
    const QString ext = requestPath.right(3).toLower();
    static const QList<std::pair<QString, QString>> types = {
        {u"wmv"_s, u"video/x-ms-wmv"_s}, {u"mp3"_s, u"audio/mpeg"_s},
        {u"wma"_s, u"audio/x-ms-wma"_s}, {u"mpg"_s, u"video/mpg"_s},
        {u"gif"_s, u"image/gif"_s},      {u"jpg"_s, u"image/jpeg"_s},
        {u"bmp"_s, u"image/bmp"_s},      {u"png"_s, u"image/png"_s},
        {u"peg"_s, u"video/mpeg"_s},
    };
    if (ext == u"exe")
        return u"Content-Type: application/octet-stream\r\nAccept-Ranges: bytes\r\n"_s;
    if (ext == u"zip")
        return u"Content-Type: application/x-zip-compressed\r\nAccept-Ranges: bytes\r\n"_s;
    for (const auto& [suffix, type] : types)
        if (ext == suffix)
            return u"Content-Type: "_s + type + u"\r\n"_s;
    return u"Content-Type: text/html\r\n"_s;
}

std::optional<qint64> RangeStart(const QString& requestText) {
    qsizetype r = requestText.indexOf(u"Range:"_s); // this exact case, as clients send it
    if (r < 0)
        return std::nullopt;
    qsizetype q = requestText.indexOf(u'=', r);
    qsizetype d = q < 0 ? -1 : requestText.indexOf(u'-', q);
    if (d < 0)
        return std::nullopt;
    QString number = requestText.mid(q + 1, d - q - 1).trimmed();
    bool ok = !number.isEmpty();
    for (QChar c : number)
        ok = ok && c.isDigit() && c.unicode() < 128;
    qint64 start = ok ? number.toLongLong(&ok) : 0;
    return ok ? std::optional<qint64>(start) : std::nullopt;
}
