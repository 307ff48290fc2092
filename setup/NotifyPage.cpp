#include "setup/NotifyPage.h"

#include "core/Password.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "reachability/DynDns.h"
#include "reachability/MailSettings.h"
#include "setup/SetupForm.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QRadioButton>
#include <QTabWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using namespace setupform;

NotifyPage::NotifyPage(Parts parts, QWidget* parent) : QWidget(parent), parts_(std::move(parts)) {
    inner_ = named(new QTabWidget, u"SSTab1"_s);

    auto* mail = new QWidget;
    chkNotifyMail_ =
        named(new QCheckBox(u"IPアドレスが変化したらメールで通知する"_s), u"chkNotifyMail"_s);
    txtTo_ = field(u"txtTo"_s);
    txtFrom_ = field(u"txtFrom"_s);
    txtSMTPServer_ = field(u"txtSMTPServer"_s);
    chkAuth_ = named(new QCheckBox(u"メール送信に認証が必要"_s), u"chkAuth"_s);
    optSMTPAuth_ = named(new QRadioButton(u"SMTPAuth"_s), u"optSMTPAuth"_s);
    optPBS_ = named(new QRadioButton(u"POP Before SMTP"_s), u"optPBS"_s);
    txtUserID_ = field(u"txtUserID"_s);
    txtPassword_ = field(u"txtPassword"_s, true);
    txtPOPServer_ = field(u"txtPOPServer"_s);
    auto* lTo = new QLabel(u"通知先アドレス"_s);
    auto* lFrom = new QLabel(u"送信者アドレス"_s);
    auto* lSmtp = new QLabel(u"送信サーバー　（SMTP）"_s);
    auto* lUser = new QLabel(u"ユーザーID"_s);
    auto* lPass = new QLabel(u"パスワード"_s);
    auto* lPop = new QLabel(u"受信サーバー (POP)"_s);
    auto* g = new QGridLayout(mail);
    g->addWidget(chkNotifyMail_, 0, 0, 1, 3);
    g->addWidget(lTo, 1, 0);
    g->addWidget(txtTo_, 1, 1, 1, 2);
    g->addWidget(lFrom, 2, 0);
    g->addWidget(txtFrom_, 2, 1, 1, 2);
    g->addWidget(lSmtp, 3, 0);
    g->addWidget(txtSMTPServer_, 3, 1, 1, 2);
    g->addWidget(chkAuth_, 4, 0);
    g->addWidget(optSMTPAuth_, 4, 1);
    g->addWidget(optPBS_, 4, 2);
    g->addWidget(lUser, 5, 0);
    g->addWidget(txtUserID_, 5, 1, 1, 2);
    g->addWidget(lPass, 6, 0);
    g->addWidget(txtPassword_, 6, 1, 1, 2);
    g->addWidget(lPop, 7, 0);
    g->addWidget(txtPOPServer_, 7, 1, 1, 2);
    g->setColumnStretch(1, 1);
    g->setColumnStretch(2, 1);
    g->setRowStretch(8, 1);
    mailGroup_ = {lTo, txtTo_, lFrom, txtFrom_, lSmtp, txtSMTPServer_, chkAuth_};
    authGroup_ = {optSMTPAuth_, optPBS_, lUser, txtUserID_, lPass, txtPassword_, lPop};

    auto* dns = new QWidget;
    chkDNSUpdate_ = named(new QCheckBox(u"IPアドレスが変化したらダイナミックDNSを自動で"
                                        u"アップデートする"_s),
                          u"chkDNSUpdate"_s);
    txtDNSUser_ = field(u"txtDNSUser"_s);
    txtDNSPass_ = field(u"txtDNSPass"_s, true);
    txtDNSHost_ = field(u"txtDNSHost"_s);
    cmdDNSUpdateNow_ = named(new QPushButton(u"今すぐアップデート"_s), u"cmdDNSUpdateNow"_s);
    auto* lDnsUser = new QLabel(u"ユーザー名"_s);
    auto* lDnsPass = new QLabel(u"パスワード"_s);
    auto* lDnsHost = new QLabel(u"ホスト名"_s);
    auto* d = new QGridLayout(dns);
    d->addWidget(chkDNSUpdate_, 0, 0, 1, 2);
    d->addWidget(lDnsUser, 1, 0);
    d->addWidget(txtDNSUser_, 1, 1);
    d->addWidget(lDnsPass, 2, 0);
    d->addWidget(txtDNSPass_, 2, 1);
    d->addWidget(lDnsHost, 3, 0);
    d->addWidget(txtDNSHost_, 3, 1);
    d->addWidget(cmdDNSUpdateNow_, 4, 1, Qt::AlignRight);
    d->addWidget(
        helpLink(u"lblDynDns"_s, u"外出先から使うには（ヘルプ）"_s, u"web.html#outside"_s, this), 5,
        0, 1, 2);
    d->setColumnStretch(1, 1);
    d->setRowStretch(6, 1);
    dnsGroup_ = {lDnsUser, txtDNSUser_, lDnsPass,        txtDNSPass_,
                 lDnsHost, txtDNSHost_, cmdDNSUpdateNow_};

    inner_->addTab(mail, u"IPアドレスをメールで通知"_s);
    inner_->addTab(dns, u"ダイナミックDNSのアップデート"_s);

    connect(chkNotifyMail_, &QCheckBox::clicked, this, &NotifyPage::updateGroups);
    connect(chkAuth_, &QCheckBox::clicked, this, [this](bool on) {
        parts_.settings.Write(Key::MailAuth, bit(on));
        updateGroups();
    });
    connect(optSMTPAuth_, &QRadioButton::clicked, this, [this] {
        parts_.settings.Write(Key::AuthMethod, u"SMTPAuth");
        updateGroups();
    });
    connect(optPBS_, &QRadioButton::clicked, this, [this] {
        parts_.settings.Write(Key::AuthMethod, u"POPBeforeSMTP");
        updateGroups();
    });
    connect(chkDNSUpdate_, &QCheckBox::clicked, this, [this](bool on) {
        parts_.settings.Write(Key::DnsUpdate, bit(on));
        updateGroups();
    });
    connect(cmdDNSUpdateNow_, &QPushButton::clicked, this, &NotifyPage::updateDnsNow);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(inner_);
}

void NotifyPage::load() {
    SettingsStore& s = parts_.settings;
    chkNotifyMail_->setChecked(s.IsOn(Key::NotifyMail));
    txtTo_->setText(s.Read(Key::NotifyTo));
    txtFrom_->setText(s.Read(Key::MailFrom));
    txtSMTPServer_->setText(s.Read(Key::SMTPServer));
    chkAuth_->setChecked(s.IsOn(Key::MailAuth));
    (s.Read(Key::AuthMethod) == u"POPBeforeSMTP" ? optPBS_ : optSMTPAuth_)->setChecked(true);
    txtUserID_->setText(s.Read(Key::MailUser));
    txtPassword_->setText(ScramblePassword(u"RESET", s.Read(Key::MailPass)));
    txtPOPServer_->setText(s.Read(Key::POPServer));
    chkDNSUpdate_->setChecked(s.IsOn(Key::DnsUpdate));
    txtDNSUser_->setText(s.Read(Key::DnsUser));
    txtDNSPass_->setText(ScramblePassword(u"RESET", s.Read(Key::DnsPass)));
    txtDNSHost_->setText(s.Read(Key::DnsHost));
}

void NotifyPage::setInternet(bool on) {
    internet_ = on;
    updateGroups();
}

MailSettings NotifyPage::mail() const {
    MailSettings m;
    m.notify = chkNotifyMail_->isChecked();
    m.to = txtTo_->text();
    m.from = txtFrom_->text();
    m.smtpServer = txtSMTPServer_->text();
    m.auth = chkAuth_->isChecked();
    m.popBeforeSmtp = optPBS_->isChecked();
    m.user = txtUserID_->text();
    m.password = txtPassword_->text();
    m.popServer = txtPOPServer_->text();
    return m;
}

void NotifyPage::saveDns() {
    parts_.settings.Write(Key::DnsUser, txtDNSUser_->text());
    parts_.settings.Write(Key::DnsPass, ScramblePassword(u"SET", txtDNSPass_->text()));
    parts_.settings.Write(Key::DnsHost, txtDNSHost_->text());
}

void NotifyPage::updateGroups() {
    chkNotifyMail_->setEnabled(internet_);
    chkDNSUpdate_->setEnabled(internet_);
    const bool mail = internet_ && chkNotifyMail_->isChecked();
    for (QWidget* w : mailGroup_)
        w->setEnabled(mail);
    const bool auth = mail && chkAuth_->isChecked();
    for (QWidget* w : authGroup_)
        w->setEnabled(auth);
    txtPOPServer_->setEnabled(auth && optPBS_->isChecked());
    for (QWidget* w : dnsGroup_)
        w->setEnabled(internet_ && chkDNSUpdate_->isChecked());
}

void NotifyPage::updateDnsNow() {
    UserPrompt& prompt = parts_.prompt;
    if (txtDNSUser_->text().isEmpty())
        return prompt.Information(u"ユーザー名を入力してください"_s);
    if (txtDNSPass_->text().isEmpty())
        return prompt.Information(u"パスワードを入力してください"_s);
    if (txtDNSHost_->text().isEmpty())
        return prompt.Information(u"ホスト名を入力してください"_s);
    if (prompt.Question(u"DNSレコードを頻繁にアップデートすると悪用とみなされてアカウントが"
                        u"削除されることがあります。\r\nアップデートしていいですか？"_s) !=
        UserPrompt::Answer::Yes)
        return;
    cmdDNSUpdateNow_->setEnabled(false);
    QPointer<NotifyPage> self(this);
    parts_.dynDns.UpdateFromSetup(
        txtDNSUser_->text(), txtDNSPass_->text(), txtDNSHost_->text(),
        parts_.port ? parts_.port() : QString(), [self, &prompt](const DynDns::ManualResult& r) {
            if (self) {
                self->updateGroups();
                if (r.outcome != DynDns::ManualResult::LookupFailed)
                    emit self->globalUrlFound(r.url);
            }
            switch (r.outcome) {
            case DynDns::ManualResult::LookupFailed:
                return prompt.Information(
                    u"IPアドレスの取得に失敗しました。アップデートは実行しませんでした。"_s);
            case DynDns::ManualResult::Accepted:
                return prompt.Information(u"アップデートに成功しました。\r\n"_s + r.answer);
            case DynDns::ManualResult::Refused:
                return prompt.Warning(u"アップデートに失敗しました。\r\n"_s + r.answer);
            }
        });
}
