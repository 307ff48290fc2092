#pragma once

#include "reservations/Scheduler.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>

class AddressMail;
class AddressWatch;
class Clock;
class DnsService;
class DynDns;
class PortMapping;
class Power;
class ProgramFolder;
class SettingsStore;
class UserPrompt;
class WebServer;

// State that all windows and modules share. Created empty; lives for the whole
// process.
struct AppState {
    bool SetupOpen = false;
    bool AppClosing = false;
    bool HibernCancel = false;
    bool RemoteLive = false;
    bool StudyClicked = false;
    qint16 StudyButton = 0;
};

// The program's non-visual centre: start order, close order, shared state and
// the background timers. The main window only shows it.
class Application : public QObject {
    Q_OBJECT
public:
    Application(const ProgramFolder& folder, SettingsStore& settings, const Clock& clock,
                UserPrompt& prompt, QObject* parent = nullptr);

    // The start order, after the instance check. Returns when the program is
    // ready to run its event loop.
    void Start();
    // The close order. Safe to call more than once; emits closed() at the end.
    void Close();
    bool isClosing() const { return closing_; }

    const ProgramFolder& folder;
    SettingsStore& settings;
    const Clock& clock;
    UserPrompt& prompt;
    AppState state;
    WebServer* webServer = nullptr; // listens from the start order on
    // The reservation grid and its scan; they run with or without windows.
    Scheduler scheduler;
    // Without a desktop nobody sees boxes: the first start logs where to go.
    bool headless = false;
    // Opens a help page for a person at the desktop.
    std::function<void(const QString& page)> openHelp;

    // Forwards the web port at the router.
    PortMapping* portMapping = nullptr;

    // The global address watch and the services it asks.
    DnsService* dnsService = nullptr;
    DynDns* dynDns = nullptr;
    AddressMail* addressMail = nullptr;
    AddressWatch* addressWatch = nullptr;
    // Sleep and wake-up; owns timHibern. The scan hands over to it.
    Power* power = nullptr;

    static const QString FirstRunText;

signals:
    // First run: the setup window should open; it sets SetupOpen while open and
    // emits setupClosed() on the application when it closes.
    void setupRequested();
    void setupClosed();
    // Close order, in this sequence. The transceiver is released first.
    void releaseDevice();
    void unloadRemoteWindows();
    void unloadWindows(); // after AppClosing is set: preview, setup, main window
    void closed();

private:
    bool closing_ = false;
};
