#include "infrared/DeviceList.h"

#include "core/BoundedRead.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <linux/lirc.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
QString readText(const QString& path) {
    // sysfs attributes: one short line each.
    const BoundedRead f = ReadBounded(path, 4096);
    return f.ok() ? QString::fromUtf8(f.bytes).trimmed() : QString();
}

const QStringList SerialPatterns = {u"ttyUSB*"_s, u"ttyACM*"_s};

// The USB device folder of a tty: ttyUSB sits below its port and interface,
// ttyACM below its interface; the walk stops at the first idVendor.
QString usbDeviceDir(const QString& tty, const SystemPaths& paths) {
    const QString root = QDir(paths.sys).canonicalPath();
    QString dir = QDir(paths.sys + u"/class/tty/"_s + tty + u"/device"_s).canonicalPath();
    for (int up = 0; up < 4 && !root.isEmpty() && dir.startsWith(root + u'/'); ++up) {
        if (QFile::exists(dir + u"/idVendor"_s))
            return dir;
        dir = QFileInfo(dir).path();
    }
    return {};
}

} // namespace

QString UsbIdentity::describe() const {
    return u"USB "_s + vendor + u':' + product +
           (serial.isEmpty() ? QString() : u" serial "_s + serial);
}

UsbIdentity UsbIdentityOf(const QString& device, const SystemPaths& paths) {
    // A link (by-id, or one of the user's) names the port it leads to: the
    // first name along the way that the kernel knows as a tty is the port.
    const QString real = QFileInfo(device).canonicalFilePath();
    QStringList names{QFileInfo(real).fileName()};
    QFileInfo hop(device);
    for (int i = 0; i < 8; ++i) {
        names << hop.fileName();
        if (!hop.isSymLink())
            break;
        hop = QFileInfo(hop.symLinkTarget());
    }
    QString usb;
    for (const QString& name : names)
        if (!name.isEmpty() && !(usb = usbDeviceDir(name, paths)).isEmpty())
            break;
    if (usb.isEmpty())
        return {};
    UsbIdentity id{readText(usb + u"/idVendor"_s).toLower(),
                   readText(usb + u"/idProduct"_s).toLower(),
                   readText(usb + u"/serial"_s),
                   {}};
    QDir byId(paths.dev + u"/serial/by-id"_s);
    for (const QFileInfo& link : byId.entryInfoList(QDir::System | QDir::NoDotAndDotDot))
        if (!real.isEmpty() && link.canonicalFilePath() == real)
            id.byId = link.absoluteFilePath();
    return id;
}

QString FindUsbSerial(const UsbIdentity& id, const SystemPaths& paths) {
    if (!id.known())
        return {};
    if (!id.byId.isEmpty() && UsbIdentityOf(id.byId, paths).sameDevice(id))
        return id.byId;
    QStringList found;
    const QStringList ttys = QDir(paths.sys + u"/class/tty"_s)
                                 .entryList(SerialPatterns, QDir::Dirs | QDir::System, QDir::Name);
    for (const QString& tty : ttys) {
        const QString path = paths.dev + u'/' + tty;
        if (QFileInfo::exists(path) && UsbIdentityOf(path, paths).sameDevice(id))
            found << path;
    }
    return found.size() == 1 ? found[0] : QString();
}

QList<IrDeviceEntry> ListIrDevices(const SystemPaths& paths) {
    QList<IrDeviceEntry> found;
    QDir dev(paths.dev);
    for (const QString& name :
         dev.entryList(SerialPatterns + QStringList{u"lirc*"_s}, QDir::System, QDir::Name)) {
        QString path = dev.filePath(name);
        QString note;
        if (name.startsWith(u"lirc")) {
            int fd = ::open(path.toLocal8Bit().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
            uint32_t features = 0;
            if (fd < 0) {
                note = u"cannot open (permissions?)"_s;
            } else if (::ioctl(fd, LIRC_GET_FEATURES, &features) == 0) {
                note = u"LIRC:"_s;
                if (features & LIRC_CAN_REC_MODE2)
                    note += u" receive"_s;
                if (features & LIRC_CAN_USE_WIDEBAND_RECEIVER)
                    note += u" wideband"_s;
                if (features & LIRC_CAN_MEASURE_CARRIER)
                    note += u" carrier-measure"_s;
                if (features & LIRC_CAN_SEND_PULSE)
                    note += u" send"_s;
            }
            if (fd >= 0)
                ::close(fd);
        } else if (const QString usb = usbDeviceDir(name, paths); !usb.isEmpty()) {
            // The USB ids of the serial adapter: the Tira is 0403:fa78.
            const QString vendor = readText(usb + u"/idVendor"_s);
            const QString product = readText(usb + u"/idProduct"_s);
            note = u"USB "_s + vendor + u':' + product + u' ' + readText(usb + u"/product"_s);
            if (vendor == u"0403" && product.compare(u"fa78", Qt::CaseInsensitive) == 0)
                note += u" (Tira)"_s;
        }
        found.append({path, note});
    }
    return found;
}
