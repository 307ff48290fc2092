#pragma once

#include "infrared/IrDriver.h"

#include "infrared/IrSignal.h"

#include <QElapsedTimer>
#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <functional>
#include <memory>
#include <vector>

// A Tira-2 on a serial port (FTDI, /dev/ttyUSBn). Every exchange is a list of
// steps run from the event loop (the synchronous calls wait for theirs with
// events running); a capture uses the device's timing mode and keeps the first
// burst and the one that repeats while the key is held. The port is held
// exclusively (TIOCEXCL and flock) while open.
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
    void startAsync(int port, Done done) override;
    void transmitAsync(int repeat, int frequency, QByteArray data, Done done) override;
    QString problem() const override { return problem_; }

    // Error codes beyond 0.
    enum Error {
        NotOpen = 1,
        Busy,
        NoReply,
        BadSignal,
        NoTransmitter,
        Unsupported,
        Io,
        Missing,   // no such device
        Forbidden, // no permission to open it
        InUse,     // another program holds it
    };

    // Who holds a device file open ("kestrava-ir (pid 123)"), "" when unknown.
    static QString HolderOf(const QString& path);

signals:
    void exchangeEnded();

private:
    enum class Mode { Closed, SixByte, Timing };

    // Writes send (when any), then waits up to timeoutMs for reply followed by
    // extra bytes; with neither it is a pause. then() sees the extra bytes and
    // ends the exchange with its code when that is not 0.
    struct Step {
        QByteArray send = {};
        QByteArray reply = {};
        int extra = 0;
        int timeoutMs = 0;
        const char* why = "did not answer";
        bool optional = false; // no answer ends the exchange, but as a success
        std::function<int(const QByteArray& extra)> then = {};
    };
    void run(std::vector<Step> steps, Done done);
    // Begins an exchange and waits in a nested loop until it reports.
    int waitFor(const std::function<void(Done)>& begin);
    int runAndWait(std::vector<Step> steps);
    void nextStep();
    void checkReply();
    void stepTimedOut();
    void finish(int rc);
    int openPort();
    std::vector<Step> startSteps();
    int transmitSteps(int repeat, int frequency, QByteArrayView data, std::vector<Step>* steps);
    bool commandsFor(const std::vector<uint32_t>& durations, int carrierHz,
                     std::vector<Step>* steps);

    void onReadable();
    void parseStream();
    void finishCapture();
    bool writeAll(QByteArrayView bytes);
    // Drops any capture and gives the step that returns the device to its normal mode.
    Step leaveTimingMode();
    void fail(const char* why);
    void closePort();
    void letGo();

    QString path_;
    int fd_ = -1;
    std::unique_ptr<QSocketNotifier> notifier_;
    QByteArray in_;
    Mode mode_ = Mode::Closed;
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
    std::vector<Step> steps_; // of the exchange under way
    size_t step_ = 0;
    Done done_;
    QTimer stepTimer_;
    QString problem_;
};
