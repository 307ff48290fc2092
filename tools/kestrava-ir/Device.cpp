// The commands that reach a transceiver: list, capture and send.
#include "core/ProgramFolder.h"
#include "infrared/DeviceList.h"
#include "infrared/IrDriver.h"
#include "infrared/LircDriver.h"
#include "infrared/SignalStore.h"
#include "infrared/TiraFacts.h"
#include "infrared/TiraSerialDriver.h"
#include "tools/kestrava-ir/Tool.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace irtool {
namespace {

QString targetOf(const QString& device) {
    bool number = false;
    int n = device.toInt(&number);
    return number ? u"/dev/ttyUSB"_s + QString::number(n) : device;
}

// The driver's return code in words; each kind of device numbers its own.
QString describe(const IrDriver& driver, int rc) {
    if (dynamic_cast<const TiraSerialDriver*>(&driver)) {
        switch (rc) {
        case TiraSerialDriver::NotOpen:
            return u"cannot be opened as a serial port"_s;
        case TiraSerialDriver::Busy:
            return u"busy with another exchange"_s;
        case TiraSerialDriver::NoReply:
            return u"does not answer as a Tira"_s;
        case TiraSerialDriver::BadSignal:
            return u"the signal is not one the device can send"_s;
        case TiraSerialDriver::NoTransmitter:
            return u"the device has no transmitter"_s;
        case TiraSerialDriver::Unsupported:
            return u"the device does not support this"_s;
        case TiraSerialDriver::Io:
            return u"input/output error"_s;
        case TiraSerialDriver::Missing:
            return u"no such device (not plugged in?)"_s;
        case TiraSerialDriver::Forbidden:
            return u"permission denied (join the group that owns it, usually dialout)"_s;
        case TiraSerialDriver::InUse:
            return u"in use by another program"_s;
        }
    } else if (dynamic_cast<const LircDriver*>(&driver)) {
        switch (rc) {
        case LircDriver::NotOpen:
            return u"cannot be opened as an infrared device"_s;
        case LircDriver::CannotReceive:
            return u"the device cannot receive"_s;
        case LircDriver::CannotSend:
            return u"the device cannot send"_s;
        case LircDriver::BadSignal:
            return u"the signal is not one the device can send"_s;
        case LircDriver::Io:
            return u"input/output error"_s;
        }
    }
    return u"error code "_s + QString::number(rc);
}

std::unique_ptr<IrDriver> openDriver(const QString& device) {
    ProgramFolder here(QDir::currentPath());
    QString target = targetOf(device);
    auto driver = MakeIrDriver(target, here);
    int rc = driver->tira_init();
    if (rc == 0)
        rc = driver->tira_start(0);
    if (rc != 0) {
        complain(target + u": cannot open the transceiver: "_s + describe(*driver, rc));
        return nullptr;
    }
    return driver;
}

// Whether the signal file can be stored (written beside, then renamed over
// path), found out before anybody is asked to press a key. A probe file in
// its folder tells, and goes again.
bool writable(const QString& path) {
    const QFileInfo info(path);
    int err = 0;
    if (info.isDir()) {
        err = EISDIR;
    } else {
        QByteArray probe = QFile::encodeName(info.absolutePath() + u"/.kestrava-ir.XXXXXX"_s);
        const int fd = ::mkostemp(probe.data(), O_CLOEXEC);
        if (fd < 0) {
            err = errno;
        } else {
            ::close(fd);
            ::unlink(probe.constData());
        }
    }
    if (err)
        complain(path + u": cannot be written: "_s + QString::fromLocal8Bit(std::strerror(err)));
    return err == 0;
}

} // namespace

int list(bool json) {
    const QList<IrDeviceEntry> devices = ListIrDevices();
    if (json) {
        QJsonArray all;
        for (const IrDeviceEntry& d : devices)
            all.append(QJsonObject{{u"path"_s, d.path}, {u"note"_s, d.note}});
        print(QString::fromUtf8(QJsonDocument(all).toJson(QJsonDocument::Compact)) + u'\n');
        return 0;
    }
    for (const IrDeviceEntry& d : devices)
        print(d.path + u"  "_s + d.note + u'\n');
    if (devices.isEmpty())
        print(u"no serial or LIRC devices found\n"_s);
    return 0;
}

int capture(const QString& device, const QString& path, int seconds) {
    outputTo(path);
    if (!isStdio(path) && !writable(path))
        return 1;
    auto driver = openDriver(device);
    if (!driver)
        return 1;
    if (driver->tira_start_capture() != 0) {
        complain(u"the transceiver cannot capture"_s);
        return 1;
    }
    print(u"Point the remote at the receiver and press the key...\n"_s);
    std::fflush(stdout);
    QByteArray data;
    int rc = 0;
    QTimer poll;
    QEventLoop loop;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        rc = driver->tira_get_captured_data(&data, SignalFileSize);
        if (rc != 0 || !data.isEmpty())
            loop.quit();
    });
    QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
    poll.start(40);
    loop.exec();
    driver->tira_cancel_capture();
    driver->tira_stop();
    if (data.isEmpty()) {
        const auto* lirc = dynamic_cast<const LircDriver*>(driver.get());
        complain(rc                              ? u"the capture failed"_s
                 : lirc && lirc->learnsCloseUp() ? u"nothing was received (this device learns "
                                                   u"through its short-range learning receiver: "
                                                   u"hold the remote a few centimetres from it)"_s
                                                 : u"nothing was received"_s);
        return 1;
    }
    QString error;
    if (!writeOut(path, signalImage(data), &error)) {
        complain(error);
        return 1;
    }
    if (isStdio(path))
        return 0;
    print(u"stored "_s + QString::number(data.size()) + u" bytes in "_s + path + u'\n');
    return show(path, ShowAs::Text);
}

int send(const QString& device, const QString& path) {
    QByteArray bytes;
    if (!readSignal(path, &bytes))
        return 1;
    auto driver = openDriver(device);
    if (!driver)
        return 1;
    int rc = driver->tira_transmit(TiraFacts::TransmitRepeat, -1, bytes);
    driver->tira_stop();
    if (rc != 0) {
        complain(u"the transmission failed: "_s + describe(*driver, rc));
        return 1;
    }
    print(u"sent\n"_s);
    return 0;
}

} // namespace irtool
