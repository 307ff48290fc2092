#pragma once

#include <QDialog>
#include <QList>
#include <QString>

#include <functional>

class AddressWatch;
class DnsService;
class DynDns;
class PortMapping;
class ProgramEvents;
class ProgramFolder;
class Scheduler;
class SettingsStore;
class UserPrompt;
class WebServer;
class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;
class QTabWidget;
class QUrl;

// The objects the dialog changes; all outlive it.
struct SetupParts {
    const ProgramFolder& folder;
    SettingsStore& settings;
    UserPrompt& prompt;
    ProgramEvents& events; // setupClosed
    Scheduler& scheduler;
    AddressWatch& addressWatch;
    DnsService& dnsService;
    DynDns& dynDns;
    PortMapping& portMapping;
    WebServer* webServer; // none in some tests
};

// What the dialog reaches beyond the core objects; the program fills it
// with the transceiver, the camera and the browser.
struct SetupServices {
    // Opens and closes the device named (a path, "sim"), n being /dev/ttyUSBn.
    std::function<bool(const QString& target, qint16 port)> testTransceiver;
    std::function<void(bool on)> camera;  // streams while TakePic is on
    std::function<void()> cameraSettings; // the preview window
    std::function<bool(const QUrl& url)> openUrl;
    // Devices to offer besides COM1..COM16: path and description.
    std::function<QList<QPair<QString, QString>>()> devices;
};

// The settings dialog. Check boxes and option buttons are written when they
// are clicked and stay so when the dialog is cancelled; text fields are
// written by OK only. The server, scheduler and timers go on behind it.
class SetupWindow : public QDialog {
    Q_OBJECT
public:
    enum Tab { TiraTab, WebTab, NotifyTab, PowerTab, ReserveTab };

    SetupWindow(SetupParts parts, SetupServices services, QWidget* parent = nullptr);
    ~SetupWindow() override;

    void showTab(Tab tab);
    // Closed, its values handed back; deleted later.
    bool unloaded() const { return unloaded_; }

    static const QString SimulatorCaption;

signals:
    // PowerControl was switched: the main window shows or hides its suspend button.
    void powerControlChanged();

protected:
    void closeEvent(QCloseEvent* event) override;
    void done(int result) override;

private:
    QWidget* buildTiraTab();
    QWidget* buildWebTab();
    QWidget* buildNotifyTab();
    QWidget* buildPowerTab();
    QWidget* buildReserveTab();
    void load();
    void fillDevices();
    void internetSwitched(bool on);
    void lookupDone(const QString& result);
    void updateGroups();
    void portChanged();
    void testModeSwitched(bool on);
    void testTransceiver();
    void testLan();
    void updateDnsNow();
    void ok();
    void unload();
    QString withPort(const QString& url) const;

    SetupParts app_;
    SetupServices services_;
    bool loading_ = true;
    bool unloaded_ = false;

    QTabWidget* tabs_;
    QComboBox* combo1_;
    QPushButton* cmdTest_;
    QLabel* lblStatus_;
    QCheckBox* chkTest_;
    QComboBox* cboPortNo_;
    QLabel* lblLanAddr_;
    QPushButton* cmdTestLan_;
    QCheckBox* chkINetAccess_;
    QLabel* label9_;
    QLabel* lblINetAddr_;
    QCheckBox* chkWebAuth_;
    QLineEdit* txtWebUser_;
    QLineEdit* txtWebPass_;
    QTabWidget* inner_;
    QCheckBox* chkNotifyMail_;
    QLineEdit *txtTo_, *txtFrom_, *txtSMTPServer_;
    QCheckBox* chkAuth_;
    QRadioButton *optSMTPAuth_, *optPBS_;
    QLineEdit *txtUserID_, *txtPassword_, *txtPOPServer_;
    QCheckBox* chkDNSUpdate_;
    QLineEdit *txtDNSUser_, *txtDNSPass_, *txtDNSHost_;
    QPushButton* cmdDNSUpdateNow_;
    QCheckBox* chkPowerCon_;
    QLineEdit *txtPowerID_, *txtPowerPass_;
    QRadioButton *option1_, *option2_;
    QButtonGroup* optAutoStart_;
    QComboBox* cmbInterval_;
    QCheckBox* chkTakePic_;
    QPushButton* cmdTakePicSetup_;
    QList<QWidget*> mailGroup_, authGroup_, dnsGroup_;
};
