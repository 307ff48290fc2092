#pragma once

#include "tls/Certificates.h"

#include <QString>
#include <QWidget>

#include <functional>

class InternetAccess;
class SettingsStore;
class UserPrompt;
class WebServer;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QUrl;

// The settings dialog's web page: the port, the addresses to reach the pages
// at, access from the internet and the login.
class WebAccessPage : public QWidget {
    Q_OBJECT
public:
    struct Parts {
        SettingsStore& settings;
        UserPrompt& prompt;
        InternetAccess& internet;
        WebServer* webServer; // none in some tests
        std::function<bool(const QUrl& url)> openUrl;
        std::function<CertificateInfo()> certificate; // none in some tests
    };
    explicit WebAccessPage(Parts parts, QWidget* parent = nullptr);

    void load();
    // Internet use needs the global address: looked up again each time the
    // dialog opens with it on.
    void loadInternet();
    // OK: the login.
    void save();
    QString port() const;
    bool internetOn() const;
    // A URL found elsewhere in the dialog (the DNS update) for the internet.
    void showGlobalUrl(const QString& url);

signals:
    void internetChanged(bool on);

private:
    void internetSwitched(bool on);
    void portChanged();
    void testLan();
    void updateLogin();
    QString withPort(const QString& url) const;

    Parts parts_;
    QComboBox* cboPortNo_;
    QLabel* lblLanAddr_;
    QPushButton* cmdTestLan_;
    QCheckBox* chkINetAccess_;
    QLabel* label9_;
    QLabel* lblINetAddr_;
    QCheckBox* chkWebAuth_;
    QLineEdit* txtWebUser_;
    QLineEdit* txtWebPass_;
    QLabel* lblCertificate_;
};
