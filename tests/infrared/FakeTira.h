#pragma once

#include <QByteArray>
#include <QSocketNotifier>
#include <QString>

#include <functional>
#include <memory>

// The device side of a Tira-2 on a pseudo-terminal, answering as the device does; the driver
// opens path() through its real termios code.
class FakeTira {
public:
    FakeTira();
    // On the far end of some other line (a virtual machine's serial port); takes fd over.
    explicit FakeTira(int fd);
    ~FakeTira();

    QString path() const { return path_; }
    void write(const QByteArray& bytes);
    // Plays bytes to the host in pieces, one piece per event-loop turn.
    void writeInPieces(const QByteArray& bytes, int pieceSize, int delayMs);
    void hangUp(); // the cable is pulled

    QByteArray fromHost;                              // everything the host has written
    QList<QByteArray> transmissions;                  // each "IX" command as received
    uint8_t version = 0x21;                           // Tira-2 with a transmitter
    bool answer = true;                               // false: a device that stays silent
    std::function<void(const QByteArray&)> onCommand; // sees each command first
    std::function<void()> onTransmit;                 // after an "IX" has come in whole
    std::function<void()> onGone;                     // the far end closed the line (not a pty)

private:
    void listen();
    void readable();
    void handle();

    int master_ = -1;
    QString path_;
    QByteArray pending_;
    std::unique_ptr<QSocketNotifier> notifier_;
};
