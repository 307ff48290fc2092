#pragma once

#include "tls/Certificates.h"

#include <QDialog>
#include <QList>
#include <QPair>
#include <QString>

#include <functional>

class DynDns;
class InternetAccess;
class MqttPage;
class NotifyPage;
class PowerPage;
class ProgramEvents;
class ProgramFolder;
class ReservePage;
class Scheduler;
class SettingsStore;
class TransceiverPage;
class UserPrompt;
class WebAccessPage;
class WebServer;
class QTabWidget;
class QUrl;

// The objects the dialog changes; all outlive it.
struct SetupParts {
    const ProgramFolder& folder;
    SettingsStore& settings;
    UserPrompt& prompt;
    ProgramEvents& events; // setupClosed
    Scheduler& scheduler;
    InternetAccess& internet;
    DynDns& dynDns;
    WebServer* webServer; // none in some tests
};

// What the dialog reaches beyond the core objects; the program fills it
// with the transceiver, the camera and the browser.
struct SetupServices {
    // Opens and closes the device named (a path, "sim"), n being /dev/ttyUSBn.
    std::function<bool(const QString& target, qint16 port)> testTransceiver;
    std::function<void(bool on)> camera;  // the TakePic option: stored, the stream follows
    std::function<void()> cameraSettings; // the preview window
    std::function<bool(const QUrl& url)> openUrl;
    // Devices to offer besides COM1..COM16: path and description.
    std::function<QList<QPair<QString, QString>>()> devices;
    // The MQTT settings changed: the client rereads them and reconnects.
    std::function<void()> mqttChanged;
    // The HTTPS certificate, for the web page.
    std::function<CertificateInfo()> certificate;
};

// The settings dialog: a page per tab. Check boxes and option buttons are
// written when they are clicked and stay so when the dialog is cancelled;
// text fields are written by OK only. The server, scheduler and timers go on
// behind it.
class SetupWindow : public QDialog {
    Q_OBJECT
public:
    enum Tab { TiraTab, WebTab, NotifyTab, PowerTab, ReserveTab, MqttTab };

    SetupWindow(SetupParts parts, SetupServices services, QWidget* parent = nullptr);
    ~SetupWindow() override;

    void showTab(Tab tab);
    // Closed, its values handed back; deleted later.
    bool unloaded() const { return unloaded_; }

signals:
    // PowerControl was switched: the main window shows or hides its suspend button.
    void powerControlChanged();

protected:
    void closeEvent(QCloseEvent* event) override;
    void done(int result) override;

private:
    void load();
    void ok();
    void unload();

    SetupParts app_;
    bool unloaded_ = false;

    QTabWidget* tabs_;
    TransceiverPage* transceiver_;
    WebAccessPage* web_;
    NotifyPage* notify_;
    PowerPage* power_;
    ReservePage* reserve_;
    MqttPage* mqtt_;
};
