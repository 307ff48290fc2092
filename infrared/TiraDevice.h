#pragma once

#include "infrared/IrDriver.h"
#include "infrared/SignalStore.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>
#include <vector>

class ProgramFolder;
class SettingsStore;
class UserPrompt;

// The one owner of the infrared transceiver: opens it on demand, captures,
// transmits, and closes it again after 30 s without use so that the port is
// free for other programs. Nothing else calls a driver.
class TiraDevice : public QObject {
    Q_OBJECT
public:
    // Who asked: a person at the desktop gets boxes; a web request, a
    // reservation or a timer gets notices that do not stop the program.
    enum class Origin { Desktop, Background };
    using DriverFactory = std::function<std::unique_ptr<IrDriver>(const QString& target)>;

    TiraDevice(const ProgramFolder& folder, SettingsStore& settings, UserPrompt& prompt,
               QObject* parent = nullptr);
    ~TiraDevice() override;

    void ClearAll();
    bool ActivateTira(qint16 port);
    void DeActivateTira();
    bool CaptureTira();
    bool CancelCaptureTira();
    void EraseSignal();
    QString GetSignal() const;
    bool TransmitTira(const QString& path, Origin origin = Origin::Desktop);
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

    int captureTimeoutMs = 11000;
    DriverFactory factory;
    // Asks for the port when none is set; the port dialog fills it in.
    std::function<void()> SpecifyPort;

    IrDriver* driver() const { return driver_.get(); }

    static const QString PortUnsetText;
    static const QString CannotActivateText;

signals:
    void captureEnded();

private:
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
};
