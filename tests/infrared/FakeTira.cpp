#include "infrared/FakeTira.h"

#include <QTimer>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

FakeTira::FakeTira() {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0)
        return;
    path_ = QString::fromLocal8Bit(ptsname(master_));
    listen();
}

FakeTira::FakeTira(int fd) : master_(fd) {
    listen();
}

void FakeTira::listen() {
    notifier_ = std::make_unique<QSocketNotifier>(master_, QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] { readable(); });
}

FakeTira::~FakeTira() {
    hangUp();
}

void FakeTira::hangUp() {
    notifier_.reset();
    if (master_ >= 0)
        ::close(master_);
    master_ = -1;
}

void FakeTira::write(const QByteArray& bytes) {
    if (master_ >= 0 && ::write(master_, bytes.constData(), size_t(bytes.size())) < 0)
        return;
}

void FakeTira::writeInPieces(const QByteArray& bytes, int pieceSize, int delayMs) {
    for (qsizetype at = 0, i = 0; at < bytes.size(); at += pieceSize, ++i) {
        QByteArray piece = bytes.mid(at, pieceSize);
        QTimer::singleShot(int(delayMs * i), [this, piece] { write(piece); });
    }
}

void FakeTira::readable() {
    char buf[512];
    ssize_t n;
    while ((n = ::read(master_, buf, sizeof buf)) > 0) {
        fromHost.append(buf, n);
        pending_.append(buf, n);
    }
    const int err = n < 0 ? errno : 0;
    // A socket's peer has gone for good; a pty's host may open it again.
    const bool gone = n == 0 || (path_.isEmpty() && err != EAGAIN && err != EINTR);
    if (gone) {
        notifier_->setEnabled(false);
    } else if (err == EIO) { // the host closed its side; wait for it to open again
        notifier_->setEnabled(false);
        QTimer::singleShot(20, [this] {
            if (notifier_)
                notifier_->setEnabled(true);
        });
    }
    handle();
    if (gone && onGone)
        onGone(); // may end this object
}

void FakeTira::handle() {
    while (pending_.size() >= 2) {
        QByteArray cmd;
        if (pending_.startsWith("IC")) {
            if (pending_.size() < 4)
                return;
            cmd = pending_.left(4);
        } else if (pending_.startsWith("IX")) {
            // 28 bytes, then pairs up to the one that ends in F.
            qsizetype end = -1;
            for (qsizetype i = 28; i < pending_.size(); ++i)
                if ((uint8_t(pending_[i]) & 0x0F) == 0x0F) {
                    end = i + 1;
                    break;
                }
            if (end < 0)
                return;
            cmd = pending_.left(end);
        } else {
            cmd = pending_.left(2);
        }
        pending_.remove(0, cmd.size());
        if (onCommand)
            onCommand(cmd);
        if (!answer)
            continue;
        if (cmd == "IP")
            write(QByteArray("OIP") + char(0x55) + char(version));
        else if (cmd == "IR")
            write("OK");
        else if (cmd.startsWith("IC"))
            write("OIC");
        else if (cmd.startsWith("IX")) {
            transmissions << cmd;
            if (onTransmit)
                onTransmit();
            write("OIX");
        }
    }
}
