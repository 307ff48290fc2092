#pragma once

#include <QByteArray>
#include <QFile>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <optional>
#include <utility>

class ProgramFolder;
class QTcpSocket;

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
    int release() { return std::exchange(fd_, -1); }

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

// Streams one file to a socket, never holding more than a few pieces of it in
// memory: the next piece is read when the socket has sent the earlier ones. A
// client that takes nothing for 30 seconds loses its connection.
class FileSender : public QObject {
    Q_OBJECT
public:
    static constexpr qint64 PieceBytes = 64 * 1024;
    static constexpr qint64 MaxQueuedBytes = 2 * PieceBytes; // the most ever held per connection
    static constexpr int StallMs = 30000;

    // Takes over the socket's output from here on; closes it when all is sent.
    FileSender(QTcpSocket* socket, ServedFile file, qint64 start, QObject* parent = nullptr);

    bool Start(const QByteArray& header);

    void setStallMs(int ms) { stall_.setInterval(ms); }

signals:
    void finished();

private:
    void fill();
    void abort();

    QPointer<QTcpSocket> socket_;
    QFile file_;
    qint64 start_;
    QTimer stall_;
    bool done_ = false;
};
