#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <functional>
#include <memory>

class ProgramFolder;

// The nine operations of the transceiver library. Every call returns 0 on
// success. Signals cross this interface as IrBlob bytes, whatever the device.
class IrDriver {
public:
    virtual ~IrDriver() = default;

    virtual int tira_init() = 0;
    virtual int tira_cleanup() = 0;
    virtual int tira_start(int port) = 0;
    virtual int tira_stop() = 0;
    virtual int tira_start_capture() = 0;
    virtual int tira_cancel_capture() = 0;
    // Empty data with 0 means nothing has come yet; non-zero means the capture
    // failed. At most maxSize bytes are handed over.
    virtual int tira_get_captured_data(QByteArray* data, int maxSize) = 0;
    virtual int tira_get_ir_data(QString* text) = 0;
    // repeat: sends beyond the first; frequency -1: the carrier the signal holds.
    virtual int tira_transmit(int repeat, int frequency, QByteArrayView data) = 0;

    // The device this driver was made for ("sim", "/dev/ttyUSB0", ...).
    virtual QString target() const = 0;

    // Opening and sending without waiting: done gets the return code once the
    // device has answered. Drivers whose calls return at once use these as
    // they are; a driver that waits for its device overrides them, so that
    // nothing nests a wait for a later press on top of an earlier one.
    using Done = std::function<void(int rc)>;
    virtual void startAsync(int port, Done done) { done(tira_start(port)); }
    virtual void transmitAsync(int repeat, int frequency, QByteArray data, Done done) {
        done(tira_transmit(repeat, frequency, data));
    }

    // For people, in Japanese: why the last open failed ("" when nothing is known).
    virtual QString problem() const { return {}; }
};

// "sim" gives the simulator, /dev/lircN (or a link to one) the kernel's LIRC
// device, anything else a Tira on a serial port.
std::unique_ptr<IrDriver> MakeIrDriver(const QString& target, const ProgramFolder& folder);
// Which of the three MakeIrDriver makes for target: "sim", "lirc" or "tira".
const char* IrDriverKind(const QString& target);
// A LIRC device by its name (lircN), or by the kernel's list when a link names it.
bool IsLircDevice(const QString& path);
