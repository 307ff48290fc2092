#pragma once

#include "api/ClimateApi.h"
#include "api/HoldApi.h"
#include "api/JsonApi.h"
#include "api/SceneApi.h"
#include "camera/Camera.h"
#include "climate/ClimateUnits.h"
#include "core/ProgramEvents.h"
#include "infrared/Transceiver.h"
#include "lircd/Lircd.h"
#include "mqtt/Mqtt.h"
#include "power/Power.h"
#include "reachability/AddressMail.h"
#include "reachability/AddressWatch.h"
#include "reachability/DynDns.h"
#include "reachability/InternetAccess.h"
#include "reachability/PortMapping.h"
#include "remotes/IrListener.h"
#include "reservations/ReserveStore.h"
#include "reservations/Scheduler.h"
#include "scenes/Scenes.h"
#include "tls/Certificates.h"
#include "webserver/Dispatcher.h"
#include "webserver/WebServer.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>

class ClimateWindow;
class LearningLauncher;
class MainWindow;
class PreviewWindow;
class RemoteLauncher;
class SetupLauncher;
class Clock;
class ProgramFolder;
class SettingsStore;
class UserPrompt;

// The program put together: the subsystem objects that run with or without
// windows, in start order, the start order itself and the close order, told
// on events. The windows only show it.
// The answers to a CA's HTTP-01 checks, served on the plain port without the login.
FrontRoute AcmeChallengeRoute(const Certificates& certificates);

class Program : public QObject {
    Q_OBJECT
public:
    Program(const ProgramFolder& folder, SettingsStore& settings, const Clock& clock,
            UserPrompt& prompt, QObject* parent = nullptr);
    ~Program() override;

    // The start order, after the instance check. Returns when the program is
    // ready to run its event loop.
    void Start();
    // The close order. Safe to call more than once; emits closed() at the end.
    void Close();
    bool isClosing() const { return events.isClosing(); }
    // Without a desktop nobody sees boxes: the first start logs where to go,
    // a refused port is only logged.
    void SetHeadless(bool on);
    bool headless = false;

    const ProgramFolder& folder;
    SettingsStore& settings;
    const Clock& clock;
    UserPrompt& prompt;
    ProgramEvents events;
    // The reservation grid and its scan; they run with or without windows.
    Scheduler scheduler;
    // Opens a help page for a person at the desktop.
    std::function<void(const QString& page)> openHelp;
    // Whether the setup dialog asked for on the first start is open.
    std::function<bool()> setupOpen;

    // The global address watch and the services it asks.
    DnsService dnsService;
    DynDns dynDns;
    AddressMail addressMail;
    AddressWatch addressWatch;
    // Forwards the web port at the router.
    PortMapping portMapping;
    // Access from the internet switched as a whole.
    InternetAccess internet;
    // Sleep and wake-up; owns timHibern. The scan hands over to it.
    Power power;

    // What each signal file decodes as, kept in the program folder.
    SignalCodeCache codes;
    // The transceiver: opened by the first send or capture, not at start.
    Transceiver device;
    // Hears the hand-held remotes between sends while [MQTT] Listen, lircd or
    // an air conditioner wants it.
    IrListener listener;
    // The air conditioners, driven by state; the real remote's frames update them.
    ClimateUnits climates;
    // Named sequences of keys, air conditioner states and waits; one run at a time.
    Scenes scenes;
    // The pages, classic and phone, with what they reach.
    Dispatcher dispatcher;
    // Streams while TakePic is on, from the start on.
    Camera camera;
    // Listens from the start order on.
    WebServer webServer;
    // The HTTPS certificate, from files or an ACME CA; started once the web
    // server listens (the CA's check comes to its plain port).
    Certificates certificates;
    // The JSON API beside the pages, on the same server, queue and registry.
    JsonApi api;
    // Its air conditioners' calls.
    ClimateApi climateApi;
    // Its scenes' calls.
    SceneApi sceneApi;
    // Its held keys.
    HoldApi holdApi;
    // Home automation over MQTT, when a broker is set.
    Mqtt mqtt;
    // lircd's socket for LIRC's clients, when [Lircd] names a path or port.
    Lircd lircd;

    // The desktop: the windows and their launchers, none when headless.
    std::unique_ptr<RemoteLauncher> remoteLauncher;
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<LearningLauncher> learningLauncher;
    std::unique_ptr<PreviewWindow> preview;
    std::unique_ptr<ClimateWindow> climateWindow;
    std::unique_ptr<SetupLauncher> setupLauncher;
    // Makes and wires them, before the start order.
    void OpenDesktop();
    // After the start order: the main window, and the preview when asked to stay.
    void ShowDesktop();

    static const QString FirstRunText;

private:
    // Listening is on while MQTT or the lircd socket wants it; the hub tells.
    void updateListening();
    // The reservation being fired, for the label of its send.
    Reserve::Operation firing_;
};
