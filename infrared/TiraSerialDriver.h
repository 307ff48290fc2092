#pragma once

#include "infrared/IrDriver.h"

#include "infrared/IrSignal.h"

#include <QElapsedTimer>
#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <memory>
#include <vector>

// A Tira-2 on a serial port (FTDI, /dev/ttyUSBn). Waits for replies with events
// running; a capture uses the device's timing mode and keeps the first burst
// and the one that repeats while the key is held.
class TiraSerialDriver final : public QObject, public IrDriver {
    Q_OBJECT
public:
    explicit TiraSerialDriver(QString path, QObject* parent = nullptr);
    ~TiraSerialDriver() override;

    int tira_init() override { return 0; }
    int tira_cleanup() override { return tira_stop(); }
    int tira_start(int port) override;
    int tira_stop() override;
    int tira_start_capture() override;
    int tira_cancel_capture() override;
    int tira_get_captured_data(QByteArray* data, int maxSize) override;
    int tira_get_ir_data(QString* text) override;
    int tira_transmit(int repeat, int frequency, QByteArrayView data) override;
    QString target() const override { return path_; }

    // Error codes beyond 0.
    enum Error { NotOpen = 1, Busy, NoReply, BadSignal, NoTransmitter, Unsupported, Io };

signals:
    void received();

private:
    enum class Mode { Closed, SixByte, Timing };

    void onReadable();
    void parseStream();
    void finishCapture();
    bool writeAll(QByteArrayView bytes);
    // Waits until the input holds reply followed by extra bytes; consumes
    // everything up to its end and puts the extra bytes in *tail.
    bool expect(QByteArrayView reply, int extra, int timeoutMs, QByteArray* tail = nullptr);
    bool command(QByteArrayView bytes, QByteArrayView reply, int timeoutMs);
    int leaveTimingMode();
    void fail(const char* why);

    QString path_;
    int fd_ = -1;
    std::unique_ptr<QSocketNotifier> notifier_;
    QByteArray in_;
    Mode mode_ = Mode::Closed;
    bool broken_ = false;
    bool busy_ = false;
    bool capturing_ = false;
    bool awaitingOic_ = false;
    bool canTransmit_ = false;
    QByteArray captured_;
    struct Arrival {
        TiraBurst burst;
        qint64 atMs;
    };
    std::vector<Arrival> bursts_; // of the capture under way
    QElapsedTimer burstClock_;
    QTimer window_;
};
