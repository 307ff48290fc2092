#include "setup/WebAccessPage.h"

#include "core/NetAddress.h"
#include "core/Password.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "reachability/InternetAccess.h"
#include "setup/PortChoice.h"
#include "setup/SetupForm.h"
#include "webserver/WebServer.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QUrl>

using namespace Qt::StringLiterals;
using namespace setupform;

WebAccessPage::WebAccessPage(Parts parts, QWidget* parent)
    : QWidget(parent), parts_(std::move(parts)) {
    cboPortNo_ = named(new QComboBox, u"cboPortNo"_s);
    cboPortNo_->setEditable(true);
    lblLanAddr_ = named(new QLabel, u"lblLanAddr"_s);
    lblLanAddr_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    cmdTestLan_ = named(new QPushButton(u"ブラウザで確認"_s), u"cmdTestLan"_s);
    chkINetAccess_ =
        named(new QCheckBox(u"インターネット側からのアクセスを受け付ける"_s), u"chkINetAccess"_s);
    label9_ = named(new QLabel(u"インターネットからのアドレス"_s), u"Label9"_s);
    lblINetAddr_ = named(new QLabel, u"lblINetAddr"_s);
    lblINetAddr_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    chkWebAuth_ = named(new QCheckBox(u"アクセスに認証を必要とする"_s), u"chkWebAuth"_s);
    txtWebUser_ = field(u"txtWebUser"_s);
    txtWebPass_ = field(u"txtWebPass"_s, true);
    lblCertificate_ = named(new QLabel, u"lblCertificate"_s);
    lblCertificate_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    lblCertificate_->setWordWrap(true);

    connect(cboPortNo_, &QComboBox::activated, this, &WebAccessPage::portChanged);
    connect(cboPortNo_->lineEdit(), &QLineEdit::editingFinished, this, [this] {
        if (cboPortNo_->currentText() != parts_.settings.Read(Key::WebPort))
            portChanged();
    });
    connect(cmdTestLan_, &QPushButton::clicked, this, &WebAccessPage::testLan);
    connect(chkINetAccess_, &QCheckBox::clicked, this, &WebAccessPage::internetSwitched);
    connect(chkWebAuth_, &QCheckBox::clicked, this, [this](bool on) {
        parts_.settings.Write(Key::WebAuth, bit(on));
        if (parts_.webServer)
            parts_.webServer->SetWebAuthOn(on);
        updateLogin();
    });
    // The server checks against what is typed, saved or not.
    connect(txtWebUser_, &QLineEdit::textEdited, this, [this](const QString& t) {
        if (parts_.webServer)
            parts_.webServer->SetWebUser(t);
    });
    connect(txtWebPass_, &QLineEdit::textEdited, this, [this](const QString& t) {
        if (parts_.webServer)
            parts_.webServer->SetWebPass(t);
    });

    auto* grid = new QGridLayout(this);
    grid->addWidget(new QLabel(u"ポート番号"_s), 0, 0);
    grid->addWidget(cboPortNo_, 0, 1);
    grid->addWidget(new QLabel(u"LAN内からのアドレス"_s), 1, 0);
    grid->addWidget(lblLanAddr_, 1, 1);
    grid->addWidget(cmdTestLan_, 1, 2);
    grid->addWidget(chkINetAccess_, 2, 0, 1, 3);
    grid->addWidget(label9_, 3, 0);
    grid->addWidget(lblINetAddr_, 3, 1, 1, 2);
    grid->addWidget(chkWebAuth_, 4, 0, 1, 3);
    grid->addWidget(new QLabel(u"ユーザー名"_s), 5, 0);
    grid->addWidget(txtWebUser_, 5, 1);
    grid->addWidget(new QLabel(u"パスワード"_s), 6, 0);
    grid->addWidget(txtWebPass_, 6, 1);
    grid->addWidget(new QLabel(u"HTTPS証明書"_s), 7, 0);
    grid->addWidget(lblCertificate_, 7, 1, 1, 2);
    grid->setColumnStretch(1, 1);
    grid->setRowStretch(8, 1);
}

void WebAccessPage::load() {
    SettingsStore& s = parts_.settings;
    const QString port = s.Read(Key::WebPort);
    for (quint16 p : FreeWebPorts(s))
        cboPortNo_->addItem(QString::number(p));
    cboPortNo_->setCurrentIndex(0);
    if (!port.isEmpty())
        cboPortNo_->setCurrentText(port);

    // Without an address on the home network there is nothing to show or open.
    const QString local = GetPrivateIP();
    lblLanAddr_->setText(local == u"Failed" ? QString() : withPort(u"http://"_s + local));

    chkWebAuth_->setChecked(s.IsOn(Key::WebAuth));
    txtWebUser_->setText(s.Read(Key::WebUser));
    txtWebPass_->setText(ScramblePassword(u"RESET", s.Read(Key::WebPass)));
    updateLogin();

    const CertificateInfo c = parts_.certificate ? parts_.certificate() : CertificateInfo();
    QString text = c.expires.isValid() ? c.names.join(u", "_s) + u"（"_s +
                                             c.expires.toLocalTime().toString(u"yyyy/MM/dd"_s) +
                                             u"まで）\n"_s + c.source
                                       : u"なし"_s;
    if (!c.problem.isEmpty())
        text += u"\n"_s + c.problem;
    lblCertificate_->setText(text);
}

void WebAccessPage::loadInternet() {
    const bool on = parts_.internet.IsOn();
    chkINetAccess_->setChecked(on);
    label9_->setEnabled(on);
    lblINetAddr_->setEnabled(on);
    emit internetChanged(on);
    if (on)
        internetSwitched(true);
}

void WebAccessPage::save() {
    parts_.settings.Write(Key::WebUser, txtWebUser_->text());
    parts_.settings.Write(Key::WebPass, ScramblePassword(u"SET", txtWebPass_->text()));
    if (parts_.webServer)
        parts_.webServer->SetLogin(txtWebUser_->text(), txtWebPass_->text());
}

QString WebAccessPage::port() const {
    return cboPortNo_->currentText();
}

bool WebAccessPage::internetOn() const {
    return chkINetAccess_->isChecked();
}

void WebAccessPage::showGlobalUrl(const QString& url) {
    lblINetAddr_->setText(url);
}

QString WebAccessPage::withPort(const QString& url) const {
    const qsizetype scheme = url.indexOf(u"://");
    const qsizetype colon = url.indexOf(u':', scheme < 0 ? 0 : scheme + 3);
    const QString base = colon < 0 ? url : url.left(colon);
    const QString port = cboPortNo_->currentText();
    return port == u"80" || port.isEmpty() ? base : base + u':' + port;
}

void WebAccessPage::updateLogin() {
    txtWebUser_->setEnabled(chkWebAuth_->isChecked());
    txtWebPass_->setEnabled(chkWebAuth_->isChecked());
}

void WebAccessPage::internetSwitched(bool on) {
    if (!on) {
        parts_.internet.SwitchOff();
        label9_->setEnabled(false);
        lblINetAddr_->setEnabled(false);
        emit internetChanged(false);
        return;
    }
    lblINetAddr_->setText(u"グローバルIPアドレス取得中..."_s);
    QPointer<WebAccessPage> self(this);
    parts_.internet.SwitchOn([self](const QString& address) {
        if (!self)
            return;
        if (address.isEmpty()) {
            self->lblINetAddr_->setText(u"取得できませんでした"_s);
            self->chkINetAccess_->setChecked(false);
            self->internetSwitched(false);
            return;
        }
        self->lblINetAddr_->setText(self->withPort(u"http://"_s + address));
        self->label9_->setEnabled(true);
        self->lblINetAddr_->setEnabled(true);
        emit self->internetChanged(true);
    });
}

void WebAccessPage::portChanged() {
    parts_.settings.Write(Key::WebPort, cboPortNo_->currentText());
    if (parts_.webServer && parts_.webServer->HasListened())
        parts_.prompt.Information(u"ポート番号の変更は次回起動時に有効になります。\r\n"
                                  u"Kestravaを一度終了してから起動しなおしてください。"_s);
    if (!lblLanAddr_->text().isEmpty())
        lblLanAddr_->setText(withPort(lblLanAddr_->text()));
    if (lblINetAddr_->text() != u"取得できませんでした" && lblINetAddr_->text().contains(u"://"))
        lblINetAddr_->setText(withPort(lblINetAddr_->text()));
}

void WebAccessPage::testLan() {
    if (parts_.webServer)
        parts_.webServer->ListenFromSetup(cboPortNo_->currentText(), txtWebUser_->text(),
                                          txtWebPass_->text());
    else
        parts_.settings.Write(Key::WebPort, cboPortNo_->currentText());
    if (lblLanAddr_->text().isEmpty()) {
        parts_.prompt.Warning(u"IPアドレスの取得に失敗しました。"_s);
        return;
    }
    if (parts_.openUrl)
        parts_.openUrl(QUrl(lblLanAddr_->text()));
}
