#include "infrared/DeviceList.h"

#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <linux/lirc.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
QString readText(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()).trimmed() : QString();
}

} // namespace

QList<IrDeviceEntry> ListIrDevices() {
    QList<IrDeviceEntry> found;
    QDir dev(u"/dev"_s);
    for (const QString& name :
         dev.entryList({u"ttyUSB*"_s, u"ttyACM*"_s, u"lirc*"_s}, QDir::System, QDir::Name)) {
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
        } else {
            // The USB ids of the serial adapter: the Tira is 0403:fa78.
            // ttyUSB sits below its USB interface, ttyACM is the interface.
            QString usb;
            for (auto up : {u"/device/../.."_s, u"/device/.."_s}) {
                usb = QDir(u"/sys/class/tty/"_s + name + up).canonicalPath();
                if (QFile::exists(usb + u"/idVendor"_s))
                    break;
            }
            QString vendor = readText(usb + u"/idVendor"_s);
            QString product = readText(usb + u"/idProduct"_s);
            if (!vendor.isEmpty())
                note = u"USB "_s + vendor + u':' + product + u' ' + readText(usb + u"/product"_s);
            if (vendor == u"0403" && product.compare(u"fa78", Qt::CaseInsensitive) == 0)
                note += u" (Tira)"_s;
        }
        found.append({path, note});
    }
    return found;
}
