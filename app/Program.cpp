#include "app/Program.h"
#include "core/SettingKeys.h"

#include "camera/PreviewWindow.h"
#include "core/Clock.h"
#include "core/NetAddress.h"
#include "core/ProgramFolder.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "desktop/ClimateWindow.h"
#include "desktop/MainWindow.h"
#include "infrared/DeviceList.h"
#include "learning/LearningLauncher.h"
#include "phone/PhoneFiles.h"
#include "remotes/Press.h"
#include "remotes/Registry.h"
#include "remotes/RemoteLauncher.h"
#include "reservations/ClimateReserve.h"
#include "reservations/SceneReserve.h"
#include "setup/PortChoice.h"
#include "setup/SetupLauncher.h"
#include "webpages/MenuPages.h"
#include "webpages/PowerPages.h"
#include "webpages/RemotePages.h"
#include "webpages/ReservePages.h"

#include <QDesktopServices>
#include <QDir>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcApp, "kestrava.app")
} // namespace

const QString Program::FirstRunText =
    u"Kestrava（ケストラバ）をインストールしていただきましてありがとうございます。\r\n"
    u"\r\n"
    u"初めて起動されましたので、次の画面で初期設定を行ってください。\r\n"
    u"不明な点につきましては、ヘルプ文書の各項をご参照ください。"_s;

Program::Program(const ProgramFolder& folder_, SettingsStore& settings_, const Clock& clock_,
                 UserPrompt& prompt_, QObject* parent)
    : QObject(parent), folder(folder_), settings(settings_), clock(clock_), prompt(prompt_),
      scheduler(folder_, settings_, clock_), dnsService(settings_),
      dynDns(settings_, clock_, folder_.path(u"DynDns.log"), dnsService), addressMail(settings_),
      addressWatch(settings_, dnsService, addressMail, dynDns), portMapping(settings_, clock_),
      internet(settings_, dnsService, addressWatch, portMapping),
      power(settings_, prompt_, scheduler), codes(folder_.path(u"SignalCodes.cache"_s)),
      device(folder_, settings_, prompt_), listener(folder_, settings_, device),
      climates(folder_, settings_, device), scenes(folder_, settings_, device, climates),
      camera(folder_, settings_, prompt_),
      webServer(folder_, settings_, clock_, prompt_, dispatcher),
      certificates(folder_, settings_, clock_),
      api({folder_, settings_, clock_, device, scheduler, webServer,
           [this] { return addressWatch.GlobalAddr(); }}),
      climateApi(
          folder_, climates, device,
          [this](const QByteArray& name, const QJsonObject& data) { api.Publish(name, data); }),
      sceneApi(
          scenes, settings_, climates,
          [this](const QByteArray& name, const QJsonObject& data) { api.Publish(name, data); }),
      holdApi(folder_, settings_, device), mqtt(folder_, settings_, device),
      lircd(folder_, settings_, device) {
    addressMail.setPrompt(&prompt);
    addressMail.setClock(&clock);
    scheduler.hibernate = [this] { power.HibernateNow(); };

    connect(&events, &ProgramEvents::releaseDevice, &device, &Transceiver::Unload);
    power.deActivateTira = [this] { device.DeActivateTira(); };
    // Reserved signals go out like web presses: a failure is told without a box.
    connect(&scheduler, &Scheduler::fired, this, [this](const QString& d, const QString& f) {
        firing_ = {d, f};
    });
    scheduler.send = [this](const QString& path) {
        return device.TransmitTira(path, Transceiver::Origin::Background,
                                   {u"reservation"_s, firing_.device, firing_.function});
    };
    // A reserved air conditioner's state: its line names the unit and the state.
    scheduler.sendClimate = [this](const QString& d, const QString& f) {
        for (const ClimateUnit& u : climates.units()) {
            const auto state =
                u.name == d ? Reserve::ClimateStateOfFunction(u.caps, f, u.state) : std::nullopt;
            if (state) {
                climates.setState(u.id, *state, [](const ClimateUnits::Outcome&) {},
                                  {u"reservation"_s, d, f});
                return true;
            }
        }
        return false;
    };
    // A reserved scene: its line names the scene.
    scheduler.sendScene = [this](const QString& name) {
        const auto scene = scenes.sceneNamed(name);
        if (scene)
            scenes.run(
                scene->id, [](const SceneOutcome&) {}, u"reservation"_s);
        return scene.has_value();
    };
    api.sceneName = [this](int id) {
        const auto scene = scenes.scene(id);
        return scene ? scene->name : QString();
    };
    api.sceneOf = [this](const QString& d, const QString& f) {
        const auto scene = d == Reserve::SceneDevice ? scenes.sceneNamed(f) : std::nullopt;
        return scene ? scene->id : 0;
    };
    api.scenes = [this](const Api::Call& call, const FrontReply& reply) {
        sceneApi.Handle(call, reply);
    };
    api.climateLine = [this](const QString& id, const QJsonObject& wanted, int* status,
                             QString* why) -> std::optional<Reserve::ClimateLine> {
        const auto unit = climates.unit(id);
        if (!unit)
            return std::nullopt; // 404 as set
        *status = 400;
        const auto state = ClimateStateFromJson(wanted, unit->state, why);
        if (!state)
            return std::nullopt;
        *status = 422;
        return Reserve::ClimateLineFor(unit->name, unit->caps, *state, why);
    };
    api.climateOf = [this](const QString& d, const QString& f) {
        for (const ClimateUnit& u : climates.units())
            if (u.name == d && Reserve::ClimateStateOfFunction(u.caps, f, u.state))
                return u.id;
        return QString();
    };
    mqtt.SetClimates(&climates);
    mqtt.SetScenes(&scenes);
    mqtt.canListen = [this] { return listener.canListen(); };
    mqtt.listening = [this] { return listener.listening(); };
    mqtt.webPort = [this] { return webServer.WebPort(); };
    connect(&listener, &IrListener::frameHeard, &mqtt, &Mqtt::PublishFrame);
    connect(&listener, &IrListener::keyHeard, &mqtt, &Mqtt::PublishKeyHeard);
    connect(&listener, &IrListener::keyFrame, &lircd, &Lircd::KeyHeard);
    connect(&listener, &IrListener::frameHeard, &climates,
            [this](const IrTiming& timing) { climates.heard(timing); });
    lircd.SetClimates(&climates);
    lircd.SetScenes(&scenes);
    connect(&climates, &ClimateUnits::unitsChanged, this, [this] {
        if (!events.isClosing())
            updateListening();
    });
    api.mqttStatus = [this] {
        return QJsonObject{{u"server"_s, mqtt.server()},
                           {u"connected"_s, mqtt.isConnected()},
                           {u"nodeId"_s, mqtt.nodeId()},
                           {u"topic"_s, mqtt.baseTopic()},
                           {u"listening"_s, listener.listening()}};
    };
    api.httpsStatus = [this] {
        const CertificateInfo info = certificates.Info();
        const qint64 port = Val(settings.Read(Key::HttpsPort));
        if (port <= 0 && info.source.isEmpty())
            return QJsonObject();
        return QJsonObject{
            {u"port"_s, port > 0 ? QJsonValue(port) : QJsonValue()},
            {u"names"_s, QJsonArray::fromStringList(info.names)},
            {u"expires"_s, info.expires.isValid()
                               ? QJsonValue(info.expires.toUTC().toString(Qt::ISODate))
                               : QJsonValue()},
            {u"source"_s, info.source},
            {u"problem"_s, info.problem.isEmpty() ? QJsonValue() : QJsonValue(info.problem)}};
    };
    api.climates = [this](const Api::Call& call, const FrontReply& reply) {
        climateApi.Handle(call, reply);
    };
    api.UseCodes(codes);
    listener.UseCodes(codes);
    lircd.UseCodes(codes);
    api.holds = [this](const Api::Call& call, const FrontReply& reply) {
        holdApi.Handle(call, reply);
    };
    // A SmartIR file may be larger than any other body; the first route matching wins.
    webServer.AddFront(api.Route(u"/api/v1/climates/import"_s, ClimateApi::MaxImportBody));
    webServer.AddFront(api.Route());
    webServer.AddFront(Phone::Route());
    webServer.AddFront(AcmeChallengeRoute(certificates));
    // HTTPS listens once a certificate is there, and takes each renewed one.
    connect(&certificates, &Certificates::Changed, this,
            [this] { webServer.SetTlsConfiguration(certificates.ServerConfiguration()); });
    // While the CA may look, the router also forwards port 80 to the web port.
    connect(&certificates, &Certificates::challengeOpenChanged, this, [this](bool open) {
        if (settings.IsOn(Key::Internet) && (portMapping.MappingDone || !open))
            portMapping.MapChallengePort(open);
    });

    InstallMenuPages(dispatcher, settings);
    RemotePageServices remotePages;
    remotePages.send = [this](const QString& remote, const QString& button) {
        return TXSignalById(device, remote, button);
    };
    if (settings.IsOn(Key::TakePic))
        camera.start();
    remotePages.takeSnapshot = [this] {
        if (!camera.running() && !camera.start(true))
            return false;
        return camera.takePic();
    };
    remotePages.cameraOff = [this] { camera.stop(); };
    InstallRemotePages(dispatcher, settings, clock, remotePages);
    InstallPowerPages(dispatcher, settings, power, [this] { return addressWatch.GlobalAddr(); });
    InstallReservePages(dispatcher, {folder, settings, clock, [this] { scheduler.FillGrid(); }});
    // Headless, a missing or unusable port is replaced by a free one; the
    // desktop asks instead.
    webServer.portFallback = [this](const QList<quint16>& tried) {
        return FirstFreeWebPort(settings, tried);
    };
}

FrontRoute AcmeChallengeRoute(const Certificates& certificates) {
    FrontRoute route;
    route.prefix = Certificates::ChallengePath;
    route.open = true;
    route.maxBody = 0;
    route.handler = [&certificates](const FrontRequest& request, const FrontReply& reply) {
        const QByteArray answer =
            certificates.ChallengeAnswer(request.path.mid(Certificates::ChallengePath.size()));
        if (answer.isEmpty())
            return reply.Send(404, "text/plain", "404 Not Found\n");
        reply.Send(200, "text/plain", answer);
    };
    return route;
}

void Program::Start() {
    folder.CreateDataFolders();
    if (IsTestMode(settings))
        QDir().mkpath(folder.path(u"testmode/reserve"));
    int pictures = folder.WritePictures();
    if (pictures > 0)
        qCDebug(lcApp) << "wrote" << pictures << "pictures";

    if (!settings.Read(Key::WebPort).isEmpty()) {
        webServer.InitWebServer();
    } else if (headless) {
        // No screen to greet on: listen, then say where the pages and settings are.
        if (webServer.InitWebServer())
            qCInfo(lcApp).noquote()
                << "first start: the pages are at" << LocalUrl(webServer.WebPort()) + u"/"_s
                << "and the settings are kept in" << settings.path();
    } else {
        // First run: the help's first steps, a greeting, then setup with events
        // going until it closes.
        if (openHelp)
            openHelp(u"first-run.html"_s);
        prompt.Information(FirstRunText);
        emit events.setupRequested();
        if (setupOpen && setupOpen()) {
            QEventLoop loop;
            connect(&events, &ProgramEvents::setupClosed, &loop, &QEventLoop::quit);
            connect(&events, &ProgramEvents::closed, &loop, &QEventLoop::quit);
            loop.exec();
        }
        if (events.isClosing())
            return;
        // Setup may have started the server already; otherwise listen on
        // whatever port the settings now hold.
        if (!webServer.HasListened())
            webServer.InitWebServer();
    }

    certificates.Start();
    scheduler.FillGrid();
    scheduler.Start();

    internet.Start();
    mqtt.Start();
    lircd.Start();
    updateListening();
    qCInfo(lcApp).noquote() << "started on" << folder.root();
}

void Program::Close() {
    if (events.isClosing())
        return;
    events.setClosing();
    qCInfo(lcApp) << "closing";
    // Offline told before anything else goes.
    mqtt.Close();
    lircd.Close();
    listener.SetListening(false);
    emit events.releaseDevice();
    power.Close();
    addressWatch.Close();
    portMapping.Stop();
    scheduler.Stop();
    emit events.unloadRemoteWindows();
    emit events.unloadWindows();
    portMapping.RemoveAtExit();
    emit events.closed();
}

Program::~Program() = default;

void Program::updateListening() {
    listener.SetListening(settings.IsOn(Key::MqttListen) || lircd.wanted() ||
                          !climates.units().empty());
    mqtt.PublishHubStates();
}

void Program::SetHeadless(bool on) {
    headless = on;
    power.headless = on;
    webServer.headless = on;
}

void Program::OpenDesktop() {
    qCDebug(lcApp) << "running on the desktop";
    remoteLauncher = std::make_unique<RemoteLauncher>(settings, events, device);
    window =
        std::make_unique<MainWindow>(MainParts{folder, settings, clock, prompt, events, scheduler,
                                               addressWatch, power, [this] { Close(); }});
    connect(window.get(), &MainWindow::remoteWindowRequested, remoteLauncher.get(),
            &RemoteLauncher::ShowRemoteWindow);
    learningLauncher = std::make_unique<LearningLauncher>(
        LearningParts{folder, settings, prompt, events}, device, *remoteLauncher);
    connect(window.get(), &MainWindow::studyRequested, learningLauncher.get(),
            &LearningLauncher::OpenStudy);
    connect(window.get(), &MainWindow::editRequested, learningLauncher.get(),
            &LearningLauncher::OpenEdit);
    connect(window.get(), &MainWindow::climateRequested, this, [this] {
        if (!climateWindow)
            climateWindow = std::make_unique<ClimateWindow>(climates);
        climateWindow->show();
        climateWindow->raise();
    });
    connect(learningLauncher.get(), &LearningLauncher::devicesChanged, window.get(),
            &MainWindow::FillDevices);
    const auto listScenes = [this] {
        QList<QPair<int, QString>> list;
        for (const Scene& s : scenes.scenes())
            list.append({s.id, s.name});
        window->SetScenes(list);
    };
    listScenes();
    connect(&scenes, &Scenes::scenesChanged, window.get(), listScenes);
    connect(window.get(), &MainWindow::sceneRequested, this, [this](int id) {
        const auto scene = scenes.scene(id);
        const QString name = scene ? scene->name : QString();
        scenes.run(
            id,
            [this, name](const SceneOutcome& o) {
                if (!o.done && !isClosing())
                    prompt.Warning((o.step ? u"シーン「%1」は途中で止まりました。\n%2"_s
                                           : u"シーン「%1」を実行できませんでした。\n%2"_s)
                                       .arg(name, o.why));
            },
            u"desktop"_s);
    });
    connect(learningLauncher.get(), &LearningLauncher::setupWanted, &events,
            &ProgramEvents::setupRequested);
    preview =
        std::make_unique<PreviewWindow>(camera, folder, settings, [this] { return isClosing(); });
    SetupServices services;
    services.testTransceiver = [this](const QString& target, qint16 port) {
        return device.TestTarget(target, port);
    };
    services.camera = [this](bool on) { camera.SetTakePic(on); };
    services.cameraSettings = [this] {
        preview->show();
        preview->raise();
    };
    services.openUrl = [](const QUrl& url) { return QDesktopServices::openUrl(url); };
    services.certificate = [this] { return certificates.Info(); };
    services.mqttChanged = [this] {
        mqtt.Reconfigure();
        updateListening();
    };
    services.devices = [] {
        QList<QPair<QString, QString>> found;
        for (const IrDeviceEntry& d : ListIrDevices())
            found.append({d.path, d.note});
        return found;
    };
    setupLauncher = std::make_unique<SetupLauncher>(
        SetupParts{folder, settings, prompt, events, scheduler, internet, dynDns, &webServer},
        services);
    setupOpen = [this] { return setupLauncher->SetupOpen(); };
    connect(setupLauncher.get(), &SetupLauncher::powerControlChanged, window.get(),
            &MainWindow::UpdateSuspendButton);
    // The preview opened from the dialog stays only when asked to; without
    // the camera option it closes, and the camera with it.
    connect(&events, &ProgramEvents::setupClosed, preview.get(), [this] {
        if (!settings.IsOn(Key::TakePic))
            preview->close();
        else if (!settings.IsOn(Key::PreviewAlwaysShow))
            preview->hide();
    });
    // The port question of a send without a transceiver.
    device.SpecifyPort = [this] { setupLauncher->SpecifyPort(); };
    // A port that was refused: the person chooses another, for as long as
    // it takes.
    webServer.portFallback = [this](const QList<quint16>& tried) {
        return setupLauncher->PortFallback(tried);
    };
    // Unloaded at the end, when closing is no longer refused.
    connect(&events, &ProgramEvents::closed, preview.get(), &QWidget::close);
}

void Program::ShowDesktop() {
    if (window)
        window->ShowAtStart();
    // The picture comes from the stream, not the screen: the preview only
    // shows when asked to stay.
    if (preview && settings.IsOn(Key::TakePic) && settings.IsOn(Key::PreviewAlwaysShow))
        preview->show();
}
