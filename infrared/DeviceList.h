#pragma once

#include <QList>
#include <QString>

// A device that may be a transceiver: a USB serial port or a LIRC device.
struct IrDeviceEntry {
    QString path; // "/dev/ttyUSB0", "/dev/lirc0"
    QString note; // what is known about it, for people ("USB 0403:fa78 ... (Tira)")
};

// /dev/ttyUSB*, /dev/ttyACM* and /dev/lirc*, by name.
QList<IrDeviceEntry> ListIrDevices();
