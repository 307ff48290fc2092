#pragma once

#include "core/MonotonicTimer.h"
#include "infrared/DeviceList.h"
#include "infrared/IrDriver.h"
#include "infrared/IrProtocol.h"
#include "infrared/SignalCodeCache.h"
#include "infrared/SignalStore.h"
#include "infrared/Transmission.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class ProgramFolder;
class SettingsStore;
class UserPrompt;

// The one owner of the infrared transceiver: opens it on demand, captures,
// transmits, and closes it again after 30 s without use so that the port is
// free for other programs. Nothing else calls a driver. Sends go out one after
// another in the order they were asked for; a device that failed is closed and
// opened afresh at the next send (and, while its path is missing, as soon as
// it is back). A USB serial port is known by its USB identity: when the same
// device comes back under another name it is found there, and another device
// at the old name is not taken for ours.
class Transceiver : public QObject {
    Q_OBJECT
public:
    // Who asked: a person at the desktop gets boxes; a web request, a
    // reservation or a timer gets notices that do not stop the program.
    enum class Origin { Desktop, Background };
    using DriverFactory = std::function<std::unique_ptr<IrDriver>(const QString& target)>;

    Transceiver(const ProgramFolder& folder, SettingsStore& settings, UserPrompt& prompt,
                QObject* parent = nullptr);
    ~Transceiver() override;

    void ClearAll();
    bool ActivateTira(qint16 port);
    // Opens and closes the device named, whatever the settings name (the
    // settings dialog's test of a choice not yet saved).
    bool TestTarget(const QString& target, qint16 port);
    void DeActivateTira();
    bool CaptureTira();
    bool CancelCaptureTira();
    // Queues a send of a signal file; done hears how it ended. At most
    // MaxQueued sends wait behind the one going out; more are Busy at once.
    // A key's signal with a toggle bit goes out with the bit flipped from the
    // last send of its remote (kept unless label.again), as from a hand-held
    // remote.
    void Enqueue(const QString& path, std::function<void(SendResult)> done, SendLabel label = {});
    // Queues a signal made on the spot (an air conditioner's state frame)
    // behind the same queue; what names it in the log.
    void EnqueueTiming(const IrTiming& timing, const QString& what,
                       std::function<void(SendResult)> done, SendLabel label = {});
    // A held key. It takes its turn in the queue like a send and holds it:
    // the first frame, then the repeat frame at the protocol's period, until
    // StopHold or holdLimitMs; sends asked for meanwhile wait behind it.
    // started hears how the first frame went, ended how the hold ended. The id
    // is for StopHold; 0 when refused at once (ended has been told).
    enum class HoldEnd { Released, Limit, Lost, Failed };
    struct HoldOutcome {
        SendResult result = SendResult::Sent;
        int frames = 0;
        int ms = 0; // from the first frame's start to the end
        HoldEnd ended = HoldEnd::Released;
    };
    int StartHold(const QString& path, SendLabel label, std::function<void(HoldOutcome)> ended,
                  std::function<void(SendResult)> started = {});
    // Ends a hold at once; one still waiting for its turn sends its first
    // frame only. False when the hold is over or unknown.
    bool StopHold(int id, HoldEnd why = HoldEnd::Released);

    // Enqueue, waiting with events running until this send has ended. Tells
    // the person (or the log) when the device cannot be opened.
    // Without a source the label says "window" for the desktop, "page" otherwise.
    SendResult TransmitAndWait(const QString& path, Origin origin = Origin::Desktop,
                               SendLabel label = {});
    bool TransmitTira(const QString& path, Origin origin = Origin::Desktop, SendLabel label = {}) {
        return TransmitAndWait(path, origin, std::move(label)) == SendResult::Sent;
    }
    // Sends waiting behind the one going out.
    int Waiting() const { return int(queue_.size()); }
    // A send going out or waiting, an open under way or a capture armed.
    bool Busy() const { return current_ || !queue_.empty() || opening_ || CaptureWaiting == 1; }
    bool Lost() const { return lost_; }
    // Why the last open failed, "" when it did not.
    QString Problem() const { return problem_; }
    bool TestStudiedSignal();
    // Last act of the program: stop and release the library.
    void Unload();

    // Tira/Device or Tira/ComPort names a transceiver; the port number to open.
    bool PortIsSet();
    qint16 ConfiguredPort();
    // The device the settings name: Tira/Device when set, else the serial
    // port of Tira/ComPort.
    QString Target(qint16 port) const;

    const ProgramFolder& folder;
    SettingsStore& settings;
    UserPrompt& prompt;

    SignalImage SignalBuf{};
    qint32 SignalLen = 0;
    bool TiraActive = false;
    qint32 CaptureWaiting = 0;
    bool CaptureGot = false;
    qint16 LastReturnCode = 0;
    QString IrText;

    QTimer Timer1;        // 40 ms, polls the driver while open
    QTimer timDeactivate; // 30 s idle, closes the device
    QTimer timReturn;     // 2 s, looks for a lost device's path to come back

    static constexpr int MaxQueued = 32;

    int captureTimeoutMs = 11000;
    int holdLimitMs = 10000;
    DriverFactory factory;
    SystemPaths system;
    // Asks for the port when none is set; the port dialog fills it in.
    std::function<void()> SpecifyPort;

    IrDriver* driver() const { return driver_.get(); }

    static const QString PortUnsetText;
    static const QString CannotActivateText;
    // CannotActivateText with why the last open failed, when that is known.
    QString CannotActivateMessage() const;

signals:
    void captureEnded();
    void sendEnded();
    // Every send asked for, from any front, as it ends (or is refused).
    void pressEnded(const SendLabel& label, SendResult result);
    // The device went missing (false) or came back (true).
    void presenceChanged(bool present);

private:
    struct Hold;
    struct Job {
        QString path;
        QByteArray blob;
        std::function<void(SendResult)> done;
        SendLabel label;
        std::shared_ptr<Hold> hold; // a held key's frames, the blob its first
    };
    void sendNext();
    void holdFrame();
    void holdSent(int rc);
    QByteArray toggled(const QString& path, const SendLabel& label, QByteArray blob);
    void finishJob(SendResult result);
    void openAsync(qint16 port, std::function<void(bool)> done);
    bool opened(int rc, IrDriver* d, const QString& target, const QString& configured);
    // Where the device set as configured is now: configured itself unless it
    // is known to have come back under another name; "" (with why) when
    // another device has its name and ours is nowhere.
    QString locate(const QString& configured, QString* why = nullptr) const;
    void lost(const QString& target);
    void lookForReturn();
    void releaseRetired();
    void Timer1Tick();
    void tell(Origin origin, const QString& text, bool warning);
    template <typename F> int call(F f);
    void dropDriver();
    void restartIdle();

    std::unique_ptr<IrDriver> driver_;
    // Calls into a driver may wait with events running, and what runs in the
    // wait may close or replace the driver; the old one lives on here until
    // the last call into it has returned.
    int calls_ = 0;
    std::vector<std::unique_ptr<IrDriver>> retired_;

    std::optional<Job> current_; // going out now
    std::deque<Job> queue_;      // waiting behind it
    bool opening_ = false;       // an open of our own, outside any send
    bool lost_ = false;          // logged as lost, not yet back
    QString lostTarget_;
    QString problem_;    // why the last open failed, for people
    QString testTarget_; // set only while TestTarget runs
    bool testing_ = false;
    UsbIdentity identity_; // of the device last opened for identityFor_
    QString identityFor_;
    SignalCodeCache codes_;
    QHash<QString, bool> toggles_; // the last toggle sent, by remote
    MonotonicTimer holdTimer_;     // the next frame of the hold going out
    int lastHold_ = 0;
};
