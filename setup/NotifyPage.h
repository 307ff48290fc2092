#pragma once

#include <QList>
#include <QString>
#include <QWidget>

#include <functional>

class DynDns;
class SettingsStore;
class UserPrompt;
struct MailSettings;
class QCheckBox;
class QLineEdit;
class QPushButton;
class QRadioButton;
class QTabWidget;

// The settings dialog's page for telling the global address: by mail and by
// dynamic DNS. Both need access from the internet.
class NotifyPage : public QWidget {
    Q_OBJECT
public:
    struct Parts {
        SettingsStore& settings;
        UserPrompt& prompt;
        DynDns& dynDns;
        std::function<QString()> port; // the web port chosen on the web page
    };
    explicit NotifyPage(Parts parts, QWidget* parent = nullptr);

    void load();
    void setInternet(bool on);
    MailSettings mail() const;
    // OK: the DNS account.
    void saveDns();

signals:
    // The DNS update now found the address the pages are reached at.
    void globalUrlFound(const QString& url);

private:
    void updateGroups();
    void updateDnsNow();

    Parts parts_;
    bool internet_ = false;
    QTabWidget* inner_;
    QCheckBox* chkNotifyMail_;
    QLineEdit *txtTo_, *txtFrom_, *txtSMTPServer_;
    QCheckBox* chkAuth_;
    QRadioButton *optSMTPAuth_, *optPBS_;
    QLineEdit *txtUserID_, *txtPassword_, *txtPOPServer_;
    QCheckBox* chkDNSUpdate_;
    QLineEdit *txtDNSUser_, *txtDNSPass_, *txtDNSHost_;
    QPushButton* cmdDNSUpdateNow_;
    QList<QWidget*> mailGroup_, authGroup_, dnsGroup_;
};
