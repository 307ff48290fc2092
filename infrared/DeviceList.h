#pragma once

#include <QList>
#include <QString>

// A device that may be a transceiver: a USB serial port or a LIRC device.
struct IrDeviceEntry {
    QString path; // "/dev/ttyUSB0", "/dev/lirc0"
    QString note; // what is known about it, for people ("USB 0403:fa78 ... (Tira)")
};

// Where the kernel shows its devices; tests point these at a made-up tree.
struct SystemPaths {
    QString sys = QStringLiteral("/sys");
    QString dev = QStringLiteral("/dev");
};

// /dev/ttyUSB*, /dev/ttyACM* and /dev/lirc*, by name.
QList<IrDeviceEntry> ListIrDevices(const SystemPaths& paths = {});

// What a USB serial port is, whatever name the kernel gave it this time.
struct UsbIdentity {
    QString vendor, product, serial; // serial is "" when the device has none
    QString byId;                    // its /dev/serial/by-id link, when udev made one

    bool known() const { return !vendor.isEmpty(); }
    bool sameDevice(const UsbIdentity& other) const {
        return known() && vendor == other.vendor && product == other.product &&
               serial == other.serial;
    }
    QString describe() const; // "USB 0403:6001 serial A1B2"
};

// The USB device behind a serial port (a path in /dev or a link to one);
// unknown for anything that is not a USB serial port.
UsbIdentity UsbIdentityOf(const QString& device, const SystemPaths& paths = {});

// The one serial port that is this device now: its by-id link when that
// still leads to it, else a search of the ports. "" when none or more than
// one fits (two adapters without serial numbers cannot be told apart).
QString FindUsbSerial(const UsbIdentity& id, const SystemPaths& paths = {});
