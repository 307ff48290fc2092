#include "setup/SetupLauncher.h"
#include "setup/TransceiverPage.h"

#include "app/Program.h"
#include "core/Clock.h"
#include "core/Password.h"
#include "infrared/Transceiver.h"
#include "reachability/PortMapping.h"
#include "support/HttpStandIn.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "webserver/Dispatcher.h"
#include "webserver/WebServer.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTcpServer>
#include <QTest>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct Desk {
    TempFolder t;
    SystemClock clock;
    ScriptedPrompt prompt;
    Program app{t.folder, t.settings, clock, prompt};
    Transceiver device{t.folder, t.settings, prompt};
    int mqttChanged = 0;

    SetupParts parts() {
        return {t.folder,      t.settings,   prompt,     app.events,
                app.scheduler, app.internet, app.dynDns, &app.webServer};
    }
    std::unique_ptr<SetupWindow> open() {
        SetupServices services;
        services.testTransceiver = [this](const QString& target, qint16 port) {
            return device.TestTarget(target, port);
        };
        services.mqttChanged = [this] { ++mqttChanged; };
        auto dialog = std::make_unique<SetupWindow>(parts(), services);
        dialog->show();
        return dialog;
    }
    template <typename T> static T* find(QWidget* dialog, const QString& name) {
        T* w = dialog->findChild<T*>(name);
        EXPECT_NE(w, nullptr) << name.toStdString();
        return w;
    }
    static void click(QWidget* dialog, const QString& name) {
        QTest::mouseClick(find<QAbstractButton>(dialog, name), Qt::LeftButton, {}, QPoint(4, 4));
    }
    QString ini(const char16_t* section, const char16_t* key) {
        return t.settings.ReadIni(section, key);
    }
};

} // namespace

// Clicks are stored at once and stay after キャンセル; typed texts reach the file only by OK.
TEST(SetupWindow, ClicksStayAfterCancelAndTextsWaitForOK) {
    Desk d;
    HttpStandIn lookup;
    lookup.answer = HttpStandIn::Response("200 OK", "Current IP Address: 203.0.113.7");
    d.t.settings.WriteIni(u"Options", u"IPCheckURL", lookup.url());
    d.t.settings.WriteIni(u"Options", u"UPnPDescURL", u"http://127.0.0.1:1/rootDesc.xml");
    d.t.settings.WriteIni(u"WebServer", u"Port", u"0");
    d.app.webServer.portFallback = [](const QList<quint16>&) { return quint16(0); };
    ASSERT_TRUE(d.app.webServer.InitWebServer());
    d.t.settings.WriteIni(u"WebServer", u"Port", u"8123");
    auto w = d.open();
    w->showTab(SetupWindow::WebTab);

    Desk::click(w.get(), u"chkINetAccess"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return d.ini(u"Options", u"Internet") == u"1"; }))
        << Desk::find<QLabel>(w.get(), u"lblINetAddr"_s)->text().toStdString();
    EXPECT_EQ(Desk::find<QLabel>(w.get(), u"lblINetAddr"_s)->text(), u"http://203.0.113.7:8123"_s);
    EXPECT_TRUE(Desk::find<QCheckBox>(w.get(), u"chkNotifyMail"_s)->isEnabled());
    EXPECT_EQ(d.app.portMapping.TryIntervalMs(), 100);

    Desk::click(w.get(), u"chkWebAuth"_s);
    EXPECT_TRUE(d.app.webServer.Login().WebAuthOn);
    QTest::keyClicks(Desk::find<QLineEdit>(w.get(), u"txtWebPass"_s), u"secret"_s);
    EXPECT_EQ(d.app.webServer.Login().WebPass, u"secret"_s);

    // An empty pause between reservations shows as 2 s; a pick is written at once.
    auto* interval = Desk::find<QComboBox>(w.get(), u"cmbInterval"_s);
    EXPECT_EQ(interval->currentText(), u"2"_s);
    interval->setCurrentText(u"0.5"_s);
    EXPECT_EQ(d.ini(u"Options", u"Interval"), u"500"_s);

    QSignalSpy closed(&d.app.events, &ProgramEvents::setupClosed);
    Desk::click(w.get(), u"cmdCancel"_s);
    EXPECT_EQ(closed.size(), 1);
    EXPECT_EQ(d.ini(u"Options", u"Internet"), u"1"_s);
    EXPECT_EQ(d.ini(u"Options", u"WebAuth"), u"1"_s);
    EXPECT_TRUE(d.ini(u"Options", u"Web_Pass").isEmpty());
    EXPECT_EQ(d.app.webServer.Login().WebPass, u"secret"_s);
    EXPECT_EQ(d.ini(u"WebServer", u"Port"), u"8123"_s);

    // A failed lookup turns internet use off again.
    lookup.answer = HttpStandIn::Response("500 Oops", "");
    d.t.settings.WriteIni(u"Options", u"Interval", u"1500"); // by hand, not on the list
    auto again = d.open();
    EXPECT_EQ(Desk::find<QComboBox>(again.get(), u"cmbInterval"_s)->currentText(), u"1.5"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return d.ini(u"Options", u"Internet") == u"0"; }));
    EXPECT_EQ(Desk::find<QLabel>(again.get(), u"lblINetAddr"_s)->text(), u"取得できませんでした"_s);
    EXPECT_FALSE(Desk::find<QCheckBox>(again.get(), u"chkINetAccess"_s)->isChecked());
}

// OK stores port and test mode first, then refuses at the first failing check (mail login even
// with mail off); the transceiver test tries the chosen device, not the saved one.
TEST(SetupWindow, OkChecksInOrderAndTheChoicesAreTried) {
    Desk d;
    d.t.settings.WriteIni(u"Options", u"NotifyMail", u"1");
    d.t.settings.WriteIni(u"Options", u"NotifyTo", u"owner@example.org");
    d.t.settings.WriteIni(u"Options", u"MailAuth", u"1");
    d.t.writeFile(u"testmode/reserve/2026_11_23 12_00", "T|1\r\n");
    auto w = d.open();
    auto* combo = Desk::find<QComboBox>(w.get(), u"Combo1"_s);
    auto* status = Desk::find<QLabel>(w.get(), u"lblStatus"_s);

    combo->setCurrentIndex(combo->findText(TransceiverPage::SimulatorCaption));
    Desk::click(w.get(), u"cmdTest"_s);
    EXPECT_EQ(status->text(), u"成功"_s);
    combo->setCurrentIndex(15); // COM16: /dev/ttyUSB15, not there
    Desk::click(w.get(), u"cmdTest"_s);
    EXPECT_EQ(status->text(), u"失敗"_s);
    EXPECT_EQ(status->palette().color(QPalette::Window), QColor(Qt::red));
    EXPECT_EQ(d.prompt.shown.value(0), u"info:COMポート番号を変更して再テストしてください。"_s);
    EXPECT_TRUE(d.ini(u"Tira", u"Device").isEmpty());

    EXPECT_TRUE(d.app.scheduler.grid.rows().empty());
    Desk::click(w.get(), u"chkTest"_s);
    EXPECT_EQ(d.ini(u"Tira", u"Testmode"), u"1"_s);
    ASSERT_EQ(d.app.scheduler.grid.rows().size(), 1u);

    Desk::find<QLineEdit>(w.get(), u"txtFrom"_s)->setText(u"nobody"_s);
    d.prompt.shown.clear();
    Desk::click(w.get(), u"cmdOK"_s);
    EXPECT_EQ(d.prompt.shown, QStringList{u"warning:送信者アドレスが正しくありません。"_s});
    EXPECT_EQ(d.ini(u"Tira", u"ComPort"), u"15"_s);
    EXPECT_TRUE(w->isVisible());

    Desk::find<QCheckBox>(w.get(), u"chkNotifyMail"_s)->setChecked(false);
    d.prompt.shown.clear();
    Desk::click(w.get(), u"cmdOK"_s);
    EXPECT_EQ(d.prompt.shown, QStringList{u"warning:ユーザーIDが正しくありません。"_s});
    EXPECT_EQ(d.ini(u"Options", u"NotifyMail"), u"0"_s);
    EXPECT_TRUE(w->isVisible());

    combo->setCurrentIndex(combo->findText(TransceiverPage::SimulatorCaption));
    Desk::find<QLineEdit>(w.get(), u"txtUserID"_s)->setText(u"me"_s);
    Desk::find<QLineEdit>(w.get(), u"txtPassword"_s)->setText(u"pw"_s);
    // MQTT: a click is stored and told at once; a server that is no host:port keeps texts back.
    w->showTab(SetupWindow::MqttTab);
    Desk::click(w.get(), u"chkMqttListen"_s);
    EXPECT_EQ(d.ini(u"MQTT", u"Listen"), u"1"_s);
    EXPECT_EQ(d.mqttChanged, 1);
    Desk::find<QLineEdit>(w.get(), u"txtMqttServer"_s)->setText(u"broker:http"_s);
    Desk::find<QLineEdit>(w.get(), u"txtMqttPass"_s)->setText(u"mq"_s);
    d.prompt.shown.clear();
    Desk::click(w.get(), u"cmdOK"_s);
    EXPECT_TRUE(d.prompt.shown.value(0).startsWith(u"warning:MQTT サーバー"_s));
    EXPECT_TRUE(d.ini(u"MQTT", u"Password").isEmpty());
    Desk::find<QLineEdit>(w.get(), u"txtMqttServer"_s)->setText(u"mqtts://broker:8883"_s);
    Desk::click(w.get(), u"cmdOK"_s);
    EXPECT_FALSE(w->isVisible());
    EXPECT_EQ(d.ini(u"MQTT", u"Server"), u"mqtts://broker:8883"_s);
    EXPECT_EQ(ScramblePassword(u"RESET", d.ini(u"MQTT", u"Password")), u"mq"_s);
    EXPECT_EQ(d.mqttChanged, 2);
    EXPECT_EQ(d.ini(u"Options", u"MailFrom"), u"nobody"_s); // mail off: not checked
    EXPECT_EQ(ScramblePassword(u"RESET", d.ini(u"Options", u"Password")), u"pw"_s);
    EXPECT_EQ(d.ini(u"Tira", u"Device"), u"sim"_s);
}

// The first run waits for the dialog's port; a taken port brings the dialog back until one opens.
TEST(SetupWindow, FirstRunAndATakenPortWaitForTheDialog) {
    Desk d;
    WebServer& server = d.app.webServer;
    SetupLauncher windows(d.parts(), {});
    d.app.setupOpen = [&] { return windows.SetupOpen(); };
    server.portFallback = [&](const QList<quint16>& tried) { return windows.PortFallback(tried); };

    QTimer::singleShot(0, [&] {
        ASSERT_TRUE(windows.current() && windows.current()->isVisible());
        Desk::click(windows.current(), u"cmdOK"_s);
    });
    d.app.Start();
    const QString first = d.ini(u"WebServer", u"Port");
    EXPECT_EQ(server.WebPort(), Val(first));

    QTcpServer holder;
    ASSERT_TRUE(holder.listen(QHostAddress::Any));
    d.t.settings.WriteIni(u"WebServer", u"Port", QString::number(holder.serverPort()));
    d.prompt.shown.clear();
    int asked = 0;
    QTimer answer;
    answer.callOnTimeout([&] {
        SetupWindow* w = windows.current();
        if (!w || !w->isVisible())
            return;
        EXPECT_EQ(w->findChild<QTabWidget*>(u"SSTab2"_s)->currentIndex(), 1);
        if (++asked == 1)
            return Desk::click(w, u"cmdCancel"_s); // still the taken port
        Desk::find<QComboBox>(w, u"cboPortNo"_s)->setCurrentText(first);
        Desk::click(w, u"cmdOK"_s);
    });
    answer.start(10);
    EXPECT_TRUE(server.InitWebServer());
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(d.prompt.shown, QStringList(2, u"warning:"_s + WebServer::PortInUseText));
    EXPECT_EQ(server.WebPort(), Val(first));
    EXPECT_EQ(d.ini(u"WebServer", u"Port"), first);
}
