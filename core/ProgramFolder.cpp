#include "core/ProgramFolder.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QRegularExpression>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <sys/file.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcFolder, "kestrava.folder")

QString errnoText(int err) {
    return QString::fromLocal8Bit(std::strerror(err));
}
} // namespace

ProgramFolder::ProgramFolder(QString root) : root_(std::move(root)) {}

QString ProgramFolder::Resolve(const QString& homeOption) {
    QString dir = homeOption;
    if (dir.isEmpty())
        dir = qEnvironmentVariable("KESTRAVA_HOME");
    if (dir.isEmpty()) {
        QString data = qEnvironmentVariable("XDG_DATA_HOME");
        if (data.isEmpty() || !QDir::isAbsolutePath(data))
            data = QDir::homePath() + u"/.local/share"_s;
        dir = data + u"/kestrava"_s;
    }
    return QDir::cleanPath(QDir(dir).absolutePath());
}

QString ProgramFolder::path(QStringView relative) const {
    return relative.isEmpty() ? root_ : root_ + u'/' + relative.toString();
}

bool ProgramFolder::Create(QString* error) const {
    std::error_code ec;
    const std::filesystem::path path(QFile::encodeName(root_).toStdString());
    std::filesystem::create_directories(path, ec);
    // A file of that name is no folder, whatever create_directories says.
    if (!ec && !std::filesystem::is_directory(path, ec) && !ec)
        ec = std::make_error_code(std::errc::not_a_directory);
    if (!ec)
        return true;
    if (error)
        *error = u"cannot create program folder "_s + root_ + u": "_s +
                 QString::fromLocal8Bit(ec.message());
    return false;
}

void ProgramFolder::CreateDataFolders() const {
    for (auto name : {u"IRSignals"_s, u"reserve"_s})
        if (!QDir().mkpath(path(name)))
            qCWarning(lcFolder).noquote() << "cannot create" << path(name);
}

int ProgramFolder::WritePictures() const {
    int written = 0;
    QDir().mkpath(path(u"pic"));
    QDirIterator it(u":/pic"_s, QDir::Files);
    while (it.hasNext()) {
        it.next();
        QString target = path(u"pic/"_s + it.fileName());
        if (QFileInfo::exists(target))
            continue;
        if (QFile::copy(it.filePath(), target)) {
            // Resources copy read-only; the owner may replace the pictures.
            QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup |
                                              QFile::ReadOther);
            ++written;
        } else {
            qCWarning(lcFolder).noquote() << "cannot write" << target;
        }
    }
    return written;
}

int ProgramFolder::RemoveStaleTemporaries() const {
    static const QRegularExpression name(u"^.+\\.(\\d+)\\.[A-Za-z0-9]{6}\\.tmp$"_s);
    int removed = 0;
    for (auto sub : {QString(), u"IRSignals"_s, u"reserve"_s, u"testmode/reserve"_s}) {
        QDir dir(path(sub));
        for (const QString& file : dir.entryList({u"*.tmp"_s}, QDir::Files | QDir::Hidden)) {
            const auto m = name.match(file);
            if (!m.hasMatch())
                continue;
            const qint64 pid = m.captured(1).toLongLong();
            // Ours from before this start, or of a process that has ended.
            const bool gone = pid == getpid() || pid > std::numeric_limits<pid_t>::max() ||
                              (::kill(pid_t(pid), 0) != 0 && errno == ESRCH);
            if (gone && dir.remove(file)) {
                qCInfo(lcFolder).noquote() << "removed stale" << dir.filePath(file);
                ++removed;
            }
        }
    }
    return removed;
}

InstanceLock::~InstanceLock() {
    Release();
}

InstanceLock::Result InstanceLock::Acquire(const ProgramFolder& folder, QString* error) {
    Release();
    const QByteArray name = QFile::encodeName(folder.path(u"kestrava.lock"));
    int fd = ::open(name.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        if (error)
            *error =
                u"cannot write in program folder "_s + folder.root() + u": "_s + errnoText(errno);
        return Result::Failed;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        int err = errno;
        ::close(fd);
        if (err == EWOULDBLOCK)
            return Result::HeldElsewhere;
        if (error)
            *error = u"cannot lock "_s + QFile::decodeName(name) + u": "_s + errnoText(err);
        return Result::Failed;
    }
    // The pid inside is for people; the lock itself is what counts.
    QByteArray pid = QByteArray::number(getpid()) + '\n';
    if (ftruncate(fd, 0) != 0 || ::write(fd, pid.constData(), size_t(pid.size())) < 0) {
        int err = errno;
        ::close(fd);
        if (error)
            *error =
                u"cannot write in program folder "_s + folder.root() + u": "_s + errnoText(err);
        return Result::Failed;
    }
    fd_ = fd;
    return Result::Acquired;
}

qint64 InstanceLock::Holder(const ProgramFolder& folder) {
    QFile f(folder.path(u"kestrava.lock"));
    return f.open(QIODevice::ReadOnly) ? f.readLine(32).trimmed().toLongLong() : 0;
}

void InstanceLock::Release() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}
