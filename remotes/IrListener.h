#pragma once

#include "infrared/IrProtocol.h"
#include "infrared/IrSignal.h"
#include "infrared/LircDriver.h"
#include "infrared/SignalCodeCache.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QFileSystemWatcher>
#include <QObject>
#include <QSocketNotifier>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>
#include <vector>

class ProgramFolder;
class SettingsStore;
class Transceiver;

// Hears the hand-held remotes through the transceiver between sends. Only a
// LIRC device can: it lets several readers open it, so listening keeps a
// receive-only handle of its own and never takes the device from a send. A
// Tira has to leave capture mode to send and loses what it hears meanwhile, so
// it is not used to listen. Frames that arrive while a send or a capture is
// under way (or began before it ended) are our own echo or a key being
// learned, and are dropped. The simulator hears the codes written into
// sim-receive in the program folder, one "nec:0x4012" a line.
class IrListener : public QObject {
    Q_OBJECT
public:
    IrListener(const ProgramFolder& folder, SettingsStore& settings, Transceiver& device,
               QObject* parent = nullptr);
    ~IrListener() override;

    // Listens while on and the transceiver can receive between sends; reads
    // the device setting again.
    void SetListening(bool on);
    // The transceiver set can receive between sends.
    bool canListen() const;
    bool listening() const { return fd_ >= 0 || simWatch_; }
    // The program's cache of what signal files decode as, instead of one of its own.
    void UseCodes(SignalCodeCache& codes) { codes_ = &codes; }

    // A message as received, started at startedMs (on the listener's clock,
    // elapsedMs()); the device calls it, tests may.
    void Hear(const IrTiming& timing, qint64 startedMs);
    qint64 elapsedMs() const { return clock_.elapsed(); }

    // The kernel's calls; tests stand in for it.
    std::shared_ptr<LircIo> io = std::make_shared<LircIo>();

    // The same code again within this much of the last one is the key still held.
    static constexpr int RepeatGapMs = 300;

signals:
    // Every frame received, decoded (raw when undecodable). A held key
    // reports once, not per repeat frame.
    void frameHeard(const IrTiming& timing, const IrCode& code);
    // A frame that matches a learned key: its remote slot and button, and their names.
    void keyHeard(int slot, int button, const QString& remote, const QString& key);
    // Every frame of a learned key, a held key's repeats counted: 0 for the
    // frame that keyHeard tells of, then 1, 2, ... while it is held.
    void keyFrame(const IrCode& code, int repeat, const QString& remote, const QString& key);

private:
    struct Learned {
        int slot = 0;
        int button = 0;
        QString remote;
        QString key;
        IrCode code;
        std::vector<uint32_t> frame; // raw keys only
    };
    QString target() const;
    void update();
    void open();
    void close();
    void onReadable();
    void readSim();
    void endMessage();
    bool muted(qint64 startedMs) const;
    const std::vector<Learned>& learned();

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    Transceiver& device_;
    bool on_ = false;
    QString path_;
    int fd_ = -1;
    bool failed_ = false; // logged as unable to listen
    std::unique_ptr<QSocketNotifier> notifier_;
    std::unique_ptr<QFileSystemWatcher> simWatch_;
    Mode2Message message_;
    qint64 messageStart_ = 0;
    QTimer quiet_;    // ends a message the kernel did not end
    QTimer retry_;    // opens the device again after it failed
    QTimer simLater_; // a frame for the simulator waits while its own send is on air
    QElapsedTimer clock_;
    qint64 busyEndedMs_ = -1;

    // The last frame reported, to fold a held key.
    bool haveLast_ = false;
    IrCode lastCode_;
    std::vector<uint32_t> lastFrame_;
    qint64 lastMs_ = 0;
    std::vector<Learned> lastKeys_; // the learned keys the last frame matched
    int repeats_ = 0;               // frames of the held key after its first

    std::vector<Learned> learned_;
    QByteArray learnedStamp_;
    SignalCodeCache ownCodes_;
    SignalCodeCache* codes_ = &ownCodes_;
};

// Two frames' durations agree one by one within the decoder's ±25 % (at least
// 100 µs); the heard frame may go on with repeats.
bool SameTimings(const std::vector<uint32_t>& learned, const std::vector<uint32_t>& heard);
