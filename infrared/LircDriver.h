#pragma once

#include "infrared/IrDriver.h"

#include <QObject>
#include <QSocketNotifier>

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

    enum Error { NotOpen = 1, CannotReceive, CannotSend, BadSignal, Io };

private:
    void onReadable();
    void take(uint32_t record);
    void finishMessage();
    void setLearning(bool on);
    bool send(const std::vector<uint32_t>& durations);

    QString path_;
    std::shared_ptr<LircIo> io_;
    int fd_ = -1;
    uint32_t features_ = 0;
    bool broken_ = false;
    bool capturing_ = false;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::vector<uint32_t> message_;
    int carrier_ = 0;
    QByteArray captured_;
};
