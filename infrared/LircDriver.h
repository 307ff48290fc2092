#pragma once

#include "infrared/IrDriver.h"
#include "infrared/IrSignal.h"

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <vector>

// The system calls the LIRC driver makes; tests stand in for the kernel here.
class LircIo {
public:
    virtual ~LircIo() = default;
    virtual int open(const char* path, int flags);
    virtual int close(int fd);
    virtual int ioctl(int fd, unsigned long request, uint32_t* arg);
    virtual ssize_t read(int fd, void* buf, size_t size);
    virtual ssize_t write(int fd, const void* buf, size_t size);
};

// Gathers mode2 records into one message: pulses and spaces in a row are
// merged, the idle time before it is dropped, lost data starts it afresh.
class Mode2Message {
public:
    // True when the record ends the message (the kernel's timeout report).
    bool take(uint32_t record);
    // The message so far, ending with a pulse; empties it.
    IrTiming finish();
    bool empty() const { return durations_.empty(); }

private:
    std::vector<uint32_t> durations_;
    int carrier_ = 0;
};

// The kernel's infrared device, /dev/lircN: learns through mode2 records (with
// the wideband receiver and carrier measurement where offered) and sends in
// pulse mode with the carrier set.
class LircDriver final : public QObject, public IrDriver {
    Q_OBJECT
public:
    explicit LircDriver(QString path, std::shared_ptr<LircIo> io = std::make_shared<LircIo>(),
                        QObject* parent = nullptr);
    ~LircDriver() override;

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
    // Each write returns once its part has gone out; the pauses between the
    // parts are timers, so nothing waits nested.
    void transmitAsync(int repeat, int frequency, QByteArray data, Done done) override;

    enum Error { NotOpen = 1, CannotReceive, CannotSend, BadSignal, Io };

    // It learns through a separate short-range receiver: the remote has to be
    // held close to it.
    bool learnsCloseUp() const;

private:
    void onReadable();
    void take(uint32_t record);
    void finishMessage();
    void setLearning(bool on);
    // A part of a transmission: one write, then a pause.
    struct Piece {
        std::vector<uint32_t> values;
        int pauseMs = 0;
    };
    bool cut(const std::vector<uint32_t>& durations, std::vector<Piece>* pieces);
    int prepare(int repeat, int frequency, QByteArrayView data, std::vector<Piece>* pieces);
    bool write(const Piece& piece);
    void sendPiece();

    QString path_;
    std::shared_ptr<LircIo> io_;
    int fd_ = -1;
    uint32_t features_ = 0;
    bool broken_ = false;
    bool capturing_ = false;
    bool learning_ = false;       // the device is set up for learning
    uint32_t savedTimeoutUs_ = 0; // its receive timeout before
    std::unique_ptr<QSocketNotifier> notifier_;
    Mode2Message message_;
    QTimer quiet_; // ends a message the kernel did not end
    QByteArray captured_;
    std::vector<Piece> pieces_; // of the transmission under way
    size_t piece_ = 0;
    Done sending_;
    QTimer pause_;
};
