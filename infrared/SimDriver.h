#pragma once

#include <cstdint>

#include "infrared/IrDriver.h"

#include <QTimer>

// A transceiver that is always there: a capture gives an NEC frame about a
// second after it was armed (the first the sample key, each later one the next
// command), and every transmission appends a line to a log
// (time, byte count, the bytes in hex) so that people and tests see what went
// out. A transmission lasts as long as its first frame (at most 200 ms).
class SimDriver final : public IrDriver {
public:
    explicit SimDriver(QString logPath);

    int tira_init() override { return 0; }
    int tira_cleanup() override { return 0; }
    int tira_start(int port) override;
    int tira_stop() override;
    int tira_start_capture() override;
    int tira_cancel_capture() override;
    int tira_get_captured_data(QByteArray* data, int maxSize) override;
    int tira_get_ir_data(QString* text) override;
    int tira_transmit(int repeat, int frequency, QByteArrayView data) override;
    QString target() const override { return QStringLiteral("sim"); }
    // Ends when the first frame would have gone out on air, as a real
    // transceiver's reply does.
    void transmitAsync(int repeat, int frequency, QByteArray data, Done done) override;

    // The signal a capture yields: NEC, address 0x40, command 0x12 (a power
    // key), followed by the repeat code.
    static QByteArray SampleCapture();
    // Any NEC key with its repeat code, as a blob.
    static QByteArray NecSignal(uint8_t address, uint8_t command);

    int captureDelayMs = 1000;

    // The log keeps its newest lines: past the limit and a little slack (so it
    // is not rewritten on every send) it is cut back to the last LogBytes.
    static constexpr qint64 LogBytes = 1024 * 1024;
    static constexpr qint64 LogSlackBytes = 64 * 1024;

private:
    void trimLog(qint64 size);

    QString logPath_;
    QTimer captureTimer_;
    QTimer airTimer_;
    Done sending_;
    bool open_ = false;
    bool captured_ = false;
    int captures_ = 0;
};
