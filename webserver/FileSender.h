#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <utility>

class ProgramFolder;

// The file a request path names inside the program folder, or "" when it has
// to answer as missing: outside the folder, one of the program's private files,
// not a regular file. Never creates anything.
QString ResolveFilePath(const ProgramFolder& folder, const QString& requestPath);

// A file opened for a request: the descriptor is closed with the object.
class ServedFile {
public:
    ServedFile() = default;
    ServedFile(int fd, qint64 size) : fd_(fd), size_(size) {}
    ServedFile(ServedFile&& other) noexcept;
    ServedFile& operator=(ServedFile&& other) noexcept;
    ~ServedFile();

    bool isOpen() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    qint64 size() const { return size_; }

private:
    int fd_ = -1;
    qint64 size_ = 0;
};

// Opens what ResolveFilePath would resolve, with one lookup beneath the folder
// where the path holds no link. Not open when the request answers as missing.
ServedFile OpenServedFile(const ProgramFolder& folder, const QString& requestPath);

// The Content-Type line (and Accept-Ranges where announced), chosen by the
// path's last three characters.
QString ContentTypeLines(const QString& requestPath);

// The first byte asked for by "Range:"; none when there is no usable number.
std::optional<qint64> RangeStart(const QString& requestText);

// The largest file (or part of one) that goes out with its header in one
// write; anything larger is sent from the file by the kernel.
constexpr qint64 FilePieceBytes = 64 * 1024;
