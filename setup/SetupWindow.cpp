#include "setup/SetupWindow.h"

#include "core/ProgramEvents.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "reachability/InternetAccess.h"
#include "reachability/MailSettings.h"
#include "setup/MqttPage.h"
#include "setup/NotifyPage.h"
#include "setup/PowerPage.h"
#include "setup/ReservePage.h"
#include "setup/SetupForm.h"
#include "setup/TransceiverPage.h"
#include "setup/WebAccessPage.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using namespace setupform;

namespace {
constexpr int TwipsPerPixel = 15;
} // namespace

SetupWindow::SetupWindow(SetupParts parts, SetupServices services, QWidget* parent)
    : QDialog(parent), app_(parts) {
    setObjectName(u"frmSetup"_s);
    setWindowTitle(u"Kestrava - 設定"_s);
    setModal(true);

    transceiver_ = new TransceiverPage({parts.folder, parts.settings, parts.prompt, parts.scheduler,
                                        services.testTransceiver, services.devices});
    web_ = new WebAccessPage({parts.settings, parts.prompt, parts.internet, parts.webServer,
                              services.openUrl, services.certificate});
    notify_ = new NotifyPage(
        {parts.settings, parts.prompt, parts.dynDns, [this] { return web_->port(); }});
    power_ = new PowerPage({parts.folder, parts.settings, parts.prompt});
    reserve_ = new ReservePage({parts.settings, services.camera, services.cameraSettings});
    mqtt_ = new MqttPage({parts.settings, services.mqttChanged});
    connect(web_, &WebAccessPage::internetChanged, notify_, &NotifyPage::setInternet);
    connect(notify_, &NotifyPage::globalUrlFound, web_, &WebAccessPage::showGlobalUrl);
    connect(power_, &PowerPage::powerControlChanged, this, &SetupWindow::powerControlChanged);

    tabs_ = named(new QTabWidget, u"SSTab2"_s);
    tabs_->setUsesScrollButtons(false); // every page's caption in sight
    tabs_->addTab(transceiver_, u"Tiraの設定"_s);
    tabs_->addTab(web_, u"ｳｪﾌﾞｱｸｾｽ設定"_s);
    tabs_->addTab(notify_, u"ｲﾝﾀｰﾈｯﾄｱﾄﾞﾚｽ通知"_s);
    tabs_->addTab(power_, u"起動と電源管理"_s);
    tabs_->addTab(reserve_, u"予約実行設定"_s);
    tabs_->addTab(mqtt_, u"MQTT"_s);

    auto* cmdOK = named(new QPushButton(u"OK"_s), u"cmdOK"_s);
    auto* cmdCancel = named(new QPushButton(u"キャンセル"_s), u"cmdCancel"_s);
    cmdOK->setDefault(true);
    connect(cmdOK, &QPushButton::clicked, this, &SetupWindow::ok);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject); // unload() stores the port
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cmdOK);
    buttons->addWidget(cmdCancel);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tabs_);
    layout->addLayout(buttons);

    load();
}

SetupWindow::~SetupWindow() {
    unload();
}

void SetupWindow::showTab(Tab tab) {
    tabs_->setCurrentIndex(int(tab));
}

void SetupWindow::load() {
    SettingsStore& s = app_.settings;
    transceiver_->load();
    web_->load();
    notify_->load();
    power_->load();
    reserve_->load();
    mqtt_->load();
    const QString top = s.Read(Key::PositionTop(u"Setup")),
                  left = s.Read(Key::PositionLeft(u"Setup"));
    if (!top.isEmpty() && !left.isEmpty() && Val(top) >= 0 && Val(left) >= 0)
        move(int(Val(left) / TwipsPerPixel), int(Val(top) / TwipsPerPixel));
    web_->loadInternet();
}

void SetupWindow::ok() {
    SettingsStore& s = app_.settings;
    transceiver_->save();
    const MailSettings mail = notify_->mail();
    if (const QString problem = mail.addressProblem(); !problem.isEmpty())
        return app_.prompt.Warning(problem);
    s.Write(Key::NotifyMail, bit(mail.notify));
    if (const QString problem = mail.authProblem(); !problem.isEmpty())
        return app_.prompt.Warning(problem);
    if (const QString problem = mqtt_->problem(); !problem.isEmpty()) {
        showTab(MqttTab);
        return app_.prompt.Warning(problem);
    }
    mail.store(s);
    power_->save();
    notify_->saveDns();
    web_->save();
    mqtt_->save();
    app_.internet.MailNotifySaved(mail.notify);
    accept();
}

void SetupWindow::closeEvent(QCloseEvent* event) {
    QDialog::closeEvent(event);
    if (event->isAccepted())
        unload();
}

void SetupWindow::done(int result) {
    unload();
    QDialog::done(result);
}

void SetupWindow::unload() {
    if (unloaded_)
        return;
    unloaded_ = true;
    app_.settings.Write(Key::PositionTop(u"Setup"), QString::number(y() * TwipsPerPixel));
    app_.settings.Write(Key::PositionLeft(u"Setup"), QString::number(x() * TwipsPerPixel));
    if (!web_->port().isEmpty())
        app_.settings.Write(Key::WebPort, web_->port());
    emit app_.events.setupClosed();
}
