#include "infrared/SimDriver.h"

#include "core/AtomicFile.h"
#include "infrared/IrSignal.h"

#include <QDateTime>
#include <QFile>
#include <QLoggingCategory>

#include <utility>

namespace {
Q_LOGGING_CATEGORY(lcSim, "kestrava.sim")
}

SimDriver::SimDriver(QString logPath) : logPath_(std::move(logPath)) {
    captureTimer_.setSingleShot(true);
    QObject::connect(&captureTimer_, &QTimer::timeout, [this] { captured_ = true; });
    airTimer_.setSingleShot(true);
    airTimer_.setTimerType(Qt::PreciseTimer); // the air time itself, not within 5 %
    QObject::connect(&airTimer_, &QTimer::timeout, [this] {
        if (Done done = std::exchange(sending_, nullptr))
            done(0);
    });
}

int SimDriver::tira_start(int) {
    open_ = true;
    return 0;
}

int SimDriver::tira_stop() {
    open_ = false;
    captureTimer_.stop();
    captured_ = false;
    airTimer_.stop();
    if (Done done = std::exchange(sending_, nullptr))
        done(1);
    return 0;
}

void SimDriver::transmitAsync(int repeat, int frequency, QByteArray data, Done done) {
    if (sending_)
        return done(4);
    if (int rc = tira_transmit(repeat, frequency, data); rc != 0)
        return done(rc);
    uint64_t us = 0;
    for (uint32_t d : TimingFromBlob(*IrBlob::decode(data)).frame())
        us += d;
    sending_ = std::move(done);
    airTimer_.start(int(std::min<uint64_t>(us / 1000, 200)));
}

int SimDriver::tira_start_capture() {
    if (!open_)
        return 1;
    captured_ = false;
    captureTimer_.start(captureDelayMs);
    return 0;
}

int SimDriver::tira_cancel_capture() {
    captureTimer_.stop();
    captured_ = false;
    return open_ ? 0 : 1;
}

int SimDriver::tira_get_captured_data(QByteArray* data, int maxSize) {
    data->clear();
    if (!open_)
        return 1;
    if (captured_) {
        captured_ = false;
        // Each capture is another key, so learned functions differ in the log.
        const auto command = uint8_t(0x12 + captures_++);
        *data = NecSignal(0x40, command).left(maxSize);
    }
    return 0;
}

int SimDriver::tira_get_ir_data(QString* text) {
    text->clear();
    return open_ ? 0 : 1;
}

int SimDriver::tira_transmit(int repeat, int frequency, QByteArrayView data) {
    if (!open_)
        return 1;
    QByteArray line = QDateTime::currentDateTime().toString(Qt::ISODateWithMs).toUtf8() + ' ' +
                      QByteArray::number(data.size()) + ' ' +
                      data.toByteArray().toHex(' ').toUpper() + '\n';
    QFile log(logPath_);
    if (!log.open(QIODevice::WriteOnly | QIODevice::Append) || log.write(line) != line.size()) {
        qCWarning(lcSim).noquote() << "cannot write" << logPath_;
        return 2;
    }
    if (log.size() > LogBytes + LogSlackBytes)
        trimLog(log.size());
    qCDebug(lcSim) << "sent" << data.size() << "bytes, repeat" << repeat << "frequency"
                   << frequency;
    return IrBlob::decode(data) ? 0 : 3;
}

void SimDriver::trimLog(qint64 size) {
    QFile log(logPath_);
    if (!log.open(QIODevice::ReadOnly) || !log.seek(size - LogBytes))
        return;
    QByteArray tail = log.readAll();
    log.close();
    // Start at a whole line.
    tail.remove(0, tail.indexOf('\n') + 1);
    QString error;
    if (!WriteFileAtomically(logPath_, tail, 0644, &error))
        qCWarning(lcSim).noquote() << "cannot shorten" << logPath_ << ":" << error;
}

QByteArray SimDriver::SampleCapture() {
    return NecSignal(0x40, 0x12);
}

QByteArray SimDriver::NecSignal(uint8_t address, uint8_t command) {
    IrTiming t;
    t.carrierHz = 38000;
    auto& d = t.durations;
    d = {9000, 4500};
    const uint8_t bytes[] = {address, uint8_t(~address), command, uint8_t(~command)};
    for (uint8_t b : bytes)
        for (int bit = 0; bit < 8; ++bit) {
            d.push_back(560);
            d.push_back(b >> bit & 1 ? 1690 : 560);
        }
    d.push_back(560);
    uint32_t frame = 0;
    for (uint32_t us : d)
        frame += us;
    d.push_back(108000 - frame);
    t.repeatBegin = int(d.size());
    d.insert(d.end(), {9000, 2250, 560, 108000 - 11810});
    return BlobFromTiming(t)->encode();
}
