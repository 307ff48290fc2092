#include "setup/SetupWindow.h"

#include "core/NetAddress.h"
#include "core/Password.h"
#include "core/ProgramEvents.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "desktop/OpenHelp.h"
#include "reachability/AddressWatch.h"
#include "reachability/DynDns.h"
#include "reachability/PortMapping.h"
#include "remotes/Registry.h"
#include "reservations/Scheduler.h"
#include "setup/AutoStart.h"
#include "setup/PortChoice.h"
#include "webserver/WebServer.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QDir>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QRadioButton>
#include <QTabWidget>
#include <QUrl>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr int TwipsPerPixel = 15;
const QStringList IntervalSeconds = {u"0.1"_s, u"0.2"_s, u"0.5"_s, u"1"_s,
                                     u"2"_s,   u"3"_s,   u"5"_s,   u"10"_s};

template <typename T> T* named(T* w, const QString& name) {
    w->setObjectName(name);
    return w;
}

// A link to a page of the help, opened in the browser.
QLabel* helpLink(const QString& name, const QString& caption, const QString& page,
                 QWidget* parent) {
    auto* l =
        named(new QLabel(u"<a href=\"%1\">%2</a>"_s.arg(page, caption.toHtmlEscaped())), name);
    QObject::connect(l, &QLabel::linkActivated, parent,
                     [parent](const QString& target) { OpenHelp(target, parent); });
    return l;
}

QLineEdit* field(const QString& name, bool secret = false) {
    auto* e = named(new QLineEdit, name);
    if (secret)
        e->setEchoMode(QLineEdit::Password);
    return e;
}

QString bit(bool on) {
    return on ? u"1"_s : u"0"_s;
}

} // namespace

const QString SetupWindow::SimulatorCaption = u"シミュレーター"_s;

SetupWindow::SetupWindow(SetupParts parts, SetupServices services, QWidget* parent)
    : QDialog(parent), app_(parts), services_(std::move(services)) {
    setObjectName(u"frmSetup"_s);
    setWindowTitle(u"Kestrava - 設定"_s);
    setModal(true);

    tabs_ = named(new QTabWidget, u"SSTab2"_s);
    tabs_->setUsesScrollButtons(false); // every page's caption in sight
    tabs_->addTab(buildTiraTab(), u"Tiraの設定"_s);
    tabs_->addTab(buildWebTab(), u"ｳｪﾌﾞｱｸｾｽ設定"_s);
    tabs_->addTab(buildNotifyTab(), u"ｲﾝﾀｰﾈｯﾄｱﾄﾞﾚｽ通知"_s);
    tabs_->addTab(buildPowerTab(), u"起動と電源管理"_s);
    tabs_->addTab(buildReserveTab(), u"予約実行設定"_s);

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

QWidget* SetupWindow::buildTiraTab() {
    auto* page = new QWidget;
    combo1_ = named(new QComboBox, u"Combo1"_s);
    cmdTest_ = named(new QPushButton(u"テスト"_s), u"cmdTest"_s);
    lblStatus_ = named(new QLabel, u"lblStatus"_s);
    lblStatus_->setAlignment(Qt::AlignCenter);
    lblStatus_->setMinimumWidth(80);
    chkTest_ = named(new QCheckBox(u"Tiraは接続されていません。　テストモードで動作させます。"_s),
                     u"chkTest"_s);
    auto* help = named(new QLabel(u"Tiraを接続したポート、またはLIRCデバイスを選んで"
                                  u"「テスト」で確かめてください。"_s),
                       u"Label1"_s);
    help->setWordWrap(true);
    connect(cmdTest_, &QPushButton::clicked, this, &SetupWindow::testTransceiver);
    connect(chkTest_, &QCheckBox::clicked, this, &SetupWindow::testModeSwitched);

    auto* grid = new QGridLayout(page);
    grid->addWidget(help, 0, 0, 1, 3);
    grid->addWidget(new QLabel(u"ポート"_s), 1, 0);
    grid->addWidget(combo1_, 1, 1);
    grid->addWidget(cmdTest_, 1, 2);
    grid->addWidget(lblStatus_, 2, 2);
    grid->addWidget(chkTest_, 3, 0, 1, 3);
    grid->addWidget(
        helpLink(u"lblHE"_s, u"送受信機について（ヘルプ）"_s, u"first-run.html#device"_s, this), 4,
        0, 1, 3);
    grid->setColumnStretch(1, 1);
    grid->setRowStretch(5, 1);
    return page;
}

QWidget* SetupWindow::buildWebTab() {
    auto* page = new QWidget;
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

    connect(cboPortNo_, &QComboBox::activated, this, &SetupWindow::portChanged);
    connect(cboPortNo_->lineEdit(), &QLineEdit::editingFinished, this, [this] {
        if (cboPortNo_->currentText() != app_.settings.Read(Key::WebPort))
            portChanged();
    });
    connect(cmdTestLan_, &QPushButton::clicked, this, &SetupWindow::testLan);
    connect(chkINetAccess_, &QCheckBox::clicked, this, &SetupWindow::internetSwitched);
    connect(chkWebAuth_, &QCheckBox::clicked, this, [this](bool on) {
        app_.settings.Write(Key::WebAuth, bit(on));
        if (app_.webServer)
            app_.webServer->SetWebAuthOn(on);
        updateGroups();
    });
    // The server checks against what is typed, saved or not.
    connect(txtWebUser_, &QLineEdit::textEdited, this, [this](const QString& t) {
        if (app_.webServer)
            app_.webServer->SetWebUser(t);
    });
    connect(txtWebPass_, &QLineEdit::textEdited, this, [this](const QString& t) {
        if (app_.webServer)
            app_.webServer->SetWebPass(t);
    });

    auto* grid = new QGridLayout(page);
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
    grid->setColumnStretch(1, 1);
    grid->setRowStretch(7, 1);
    return page;
}

QWidget* SetupWindow::buildNotifyTab() {
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

    connect(chkNotifyMail_, &QCheckBox::clicked, this, &SetupWindow::updateGroups);
    connect(chkAuth_, &QCheckBox::clicked, this, [this](bool on) {
        app_.settings.Write(Key::MailAuth, bit(on));
        updateGroups();
    });
    connect(optSMTPAuth_, &QRadioButton::clicked, this, [this] {
        app_.settings.Write(Key::AuthMethod, u"SMTPAuth");
        updateGroups();
    });
    connect(optPBS_, &QRadioButton::clicked, this, [this] {
        app_.settings.Write(Key::AuthMethod, u"POPBeforeSMTP");
        updateGroups();
    });
    connect(chkDNSUpdate_, &QCheckBox::clicked, this, [this](bool on) {
        app_.settings.Write(Key::DnsUpdate, bit(on));
        updateGroups();
    });
    connect(cmdDNSUpdateNow_, &QPushButton::clicked, this, &SetupWindow::updateDnsNow);

    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(inner_);
    return page;
}

QWidget* SetupWindow::buildPowerTab() {
    auto* page = new QWidget;
    chkPowerCon_ = named(new QCheckBox(u"電源管理機能を有効にする"_s), u"chkPowerCon"_s);
    txtPowerID_ = field(u"txtPowerID"_s);
    txtPowerPass_ = field(u"txtPowerPass"_s, true);
    // Waking needs no account here: both fields stay off.
    txtPowerID_->setEnabled(false);
    txtPowerPass_->setEnabled(false);
    option1_ = named(new QRadioButton(u"サスペンド（スリープ）"_s), u"Option1"_s);
    option2_ = named(new QRadioButton(u"ハイバネーション（休止状態）"_s), u"Option2"_s);
    auto* sleepKind = new QButtonGroup(page);
    sleepKind->addButton(option1_);
    sleepKind->addButton(option2_);
    connect(chkPowerCon_, &QCheckBox::clicked, this, [this](bool on) {
        app_.settings.Write(Key::PowerControl, bit(on));
        emit powerControlChanged();
    });

    auto* power = new QGroupBox(u"電源管理"_s);
    auto* p = new QGridLayout(power);
    p->addWidget(chkPowerCon_, 0, 0, 1, 2);
    p->addWidget(new QLabel(u"ユーザー名"_s), 1, 0);
    p->addWidget(txtPowerID_, 1, 1);
    p->addWidget(new QLabel(u"パスワード"_s), 2, 0);
    p->addWidget(txtPowerPass_, 2, 1);
    auto* noAccount =
        named(new QLabel(u"このシステムではユーザー名とパスワードは必要ありません。"_s),
              u"lblNoAccount"_s);
    noAccount->setWordWrap(true);
    p->addWidget(noAccount, 3, 0, 1, 2);
    p->addWidget(option1_, 4, 0, 1, 2);
    p->addWidget(option2_, 5, 0, 1, 2);
    p->setColumnStretch(1, 1);

    auto* start = new QGroupBox(u"自動起動"_s);
    auto* s = new QVBoxLayout(start);
    optAutoStart_ = new QButtonGroup(page);
    const QStringList captions = {u"ログイン時に自動で起動しない"_s,
                                  u"現在のユーザーがログインしたら起動する"_s,
                                  u"誰がログインしても起動する"_s};
    for (int i = 0; i < captions.size(); ++i) {
        auto* option = named(new QRadioButton(captions[i]), u"optAutoStart_%1"_s.arg(i));
        optAutoStart_->addButton(option, i);
        s->addWidget(option);
    }
    connect(optAutoStart_, &QButtonGroup::idClicked, this, [this](int id) {
        if (!loading_)
            AutoStart::Choose(id, app_.folder.root(), app_.settings, app_.prompt);
    });

    auto* layout = new QVBoxLayout(page);
    layout->addWidget(power);
    layout->addWidget(start);
    layout->addStretch();
    return page;
}

QWidget* SetupWindow::buildReserveTab() {
    auto* page = new QWidget;
    cmbInterval_ = named(new QComboBox, u"cmbInterval"_s);
    cmbInterval_->addItems(IntervalSeconds);
    chkTakePic_ = named(new QCheckBox(u"操作対象機器をカメラで撮影してウェブページに表示する"_s),
                        u"chkTakePic"_s);
    cmdTakePicSetup_ = named(new QPushButton(u"カメラの設定"_s), u"cmdTakePicSetup"_s);
    connect(cmbInterval_, &QComboBox::currentIndexChanged, this, [this](int i) {
        if (loading_ || i < 0)
            return;
        const qint64 ms = qRound64(cmbInterval_->itemText(i).toDouble() * 1000);
        app_.settings.Write(Key::Interval, QString::number(ms));
    });
    connect(chkTakePic_, &QCheckBox::clicked, this, [this](bool on) {
        if (loading_)
            return;
        app_.settings.Write(Key::TakePic, bit(on));
        updateGroups();
        if (services_.camera)
            services_.camera(on);
    });
    connect(cmdTakePicSetup_, &QPushButton::clicked, this, [this] {
        if (services_.cameraSettings)
            services_.cameraSettings();
    });

    auto* grid = new QGridLayout(page);
    grid->addWidget(new QLabel(u"同じ時刻の予約を実行する間隔"_s), 0, 0);
    grid->addWidget(cmbInterval_, 0, 1);
    grid->addWidget(new QLabel(u"秒"_s), 0, 2);
    grid->addWidget(chkTakePic_, 1, 0, 1, 4);
    grid->addWidget(cmdTakePicSetup_, 2, 0, Qt::AlignLeft);
    grid->setColumnStretch(3, 1);
    grid->setRowStretch(3, 1);
    return page;
}

void SetupWindow::fillDevices() {
    for (int n = 1; n <= 16; ++n)
        combo1_->addItem(u"COM"_s + QString::number(n), n - 1);
    if (services_.devices)
        for (const auto& [path, note] : services_.devices())
            combo1_->addItem(note.isEmpty() ? path : path + u"  "_s + note, path);
    combo1_->addItem(SimulatorCaption, u"sim"_s);
}

void SetupWindow::load() {
    SettingsStore& s = app_.settings;
    loading_ = true;
    fillDevices();
    const QString port = s.Read(Key::WebPort);
    for (quint16 p : FreeWebPorts(s))
        cboPortNo_->addItem(QString::number(p));
    cboPortNo_->setCurrentIndex(0);
    if (!port.isEmpty())
        cboPortNo_->setCurrentText(port);

    const QString device = s.Read(Key::TransceiverPath).trimmed();
    int chosen = 0;
    if (!device.isEmpty()) {
        chosen = combo1_->findData(device);
        if (chosen < 0) { // not plugged in now
            combo1_->addItem(device, device);
            chosen = combo1_->count() - 1;
        }
    } else if (const qint64 n = Val(s.Read(Key::ComPort)); n >= 0 && n < 16) {
        chosen = int(n);
    }
    combo1_->setCurrentIndex(chosen);
    chkTest_->setChecked(IsTestMode(s));

    // Without an address on the home network there is nothing to show or open.
    const QString local = GetPrivateIP();
    lblLanAddr_->setText(local == u"Failed" ? QString() : withPort(u"http://"_s + local));

    chkWebAuth_->setChecked(s.IsOn(Key::WebAuth));
    txtWebUser_->setText(s.Read(Key::WebUser));
    txtWebPass_->setText(ScramblePassword(u"RESET", s.Read(Key::WebPass)));
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
    chkPowerCon_->setChecked(s.IsOn(Key::PowerControl));
    txtPowerID_->setText(s.Read(Key::PowerUser));
    txtPowerPass_->setText(ScramblePassword(u"RESET", s.Read(Key::PowerPass)));
    (s.Read(Key::HibernOrSuspend) == u"Suspend" ? option1_ : option2_)->setChecked(true);
    if (QAbstractButton* b = optAutoStart_->button(int(Val(s.Read(Key::WithWindows)))))
        b->setChecked(true);
    // The pause in force: 2 s while the key is empty, and one not on the list
    // (written by hand) as it stands.
    const QString interval = s.Read(Key::Interval);
    const QString seconds =
        QString::number(double(interval.isEmpty() ? 2000 : Val(interval)) / 1000);
    if (cmbInterval_->findText(seconds) < 0)
        cmbInterval_->addItem(seconds);
    cmbInterval_->setCurrentText(seconds);
    chkTakePic_->setChecked(s.IsOn(Key::TakePic));

    const QString top = s.Read(Key::PositionTop(u"Setup")),
                  left = s.Read(Key::PositionLeft(u"Setup"));
    if (!top.isEmpty() && !left.isEmpty() && Val(top) >= 0 && Val(left) >= 0)
        move(int(Val(left) / TwipsPerPixel), int(Val(top) / TwipsPerPixel));
    loading_ = false;

    // Internet use needs the global address: looked up again each time.
    const bool internet = s.IsOn(Key::Internet);
    chkINetAccess_->setChecked(internet);
    updateGroups();
    if (internet)
        internetSwitched(true);
}

QString SetupWindow::withPort(const QString& url) const {
    const qsizetype scheme = url.indexOf(u"://");
    const qsizetype colon = url.indexOf(u':', scheme < 0 ? 0 : scheme + 3);
    const QString base = colon < 0 ? url : url.left(colon);
    const QString port = cboPortNo_->currentText();
    return port == u"80" || port.isEmpty() ? base : base + u':' + port;
}

void SetupWindow::updateGroups() {
    const bool internet = chkINetAccess_->isChecked();
    for (QWidget* w : {static_cast<QWidget*>(label9_), static_cast<QWidget*>(lblINetAddr_),
                       static_cast<QWidget*>(chkNotifyMail_), static_cast<QWidget*>(chkDNSUpdate_)})
        w->setEnabled(internet);
    const bool mail = internet && chkNotifyMail_->isChecked();
    for (QWidget* w : mailGroup_)
        w->setEnabled(mail);
    const bool auth = mail && chkAuth_->isChecked();
    for (QWidget* w : authGroup_)
        w->setEnabled(auth);
    txtPOPServer_->setEnabled(auth && optPBS_->isChecked());
    for (QWidget* w : dnsGroup_)
        w->setEnabled(internet && chkDNSUpdate_->isChecked());
    cmdTakePicSetup_->setEnabled(chkTakePic_->isChecked());
    txtWebUser_->setEnabled(chkWebAuth_->isChecked());
    txtWebPass_->setEnabled(chkWebAuth_->isChecked());
}

void SetupWindow::internetSwitched(bool on) {
    if (!on) {
        app_.settings.Write(Key::Internet, u"0");
        updateGroups();
        app_.addressWatch.Stop();
        app_.portMapping.DeleteMappingPort(app_.settings.Read(Key::WebPort), u"TCP"_s);
        return;
    }
    lblINetAddr_->setText(u"グローバルIPアドレス取得中..."_s);
    QPointer<SetupWindow> self(this);
    app_.dnsService.GetIPAddr([self](const QString& result) {
        if (self)
            self->lookupDone(result);
    });
}

void SetupWindow::lookupDone(const QString& result) {
    if (!chkINetAccess_->isChecked())
        return; // cleared while the lookup ran
    if (result.isEmpty() || result.contains(u"Error")) {
        lblINetAddr_->setText(u"取得できませんでした"_s);
        chkINetAccess_->setChecked(false);
        internetSwitched(false);
        return;
    }
    lblINetAddr_->setText(withPort(u"http://"_s + result));
    app_.settings.Write(Key::Internet, u"1");
    updateGroups();
    app_.addressWatch.CheckSoon();
    app_.portMapping.StartSoon();
}

void SetupWindow::portChanged() {
    app_.settings.Write(Key::WebPort, cboPortNo_->currentText());
    if (app_.webServer && app_.webServer->HasListened())
        app_.prompt.Information(u"ポート番号の変更は次回起動時に有効になります。\r\n"
                                u"Kestravaを一度終了してから起動しなおしてください。"_s);
    if (!lblLanAddr_->text().isEmpty())
        lblLanAddr_->setText(withPort(lblLanAddr_->text()));
    if (lblINetAddr_->text() != u"取得できませんでした" && lblINetAddr_->text().contains(u"://"))
        lblINetAddr_->setText(withPort(lblINetAddr_->text()));
}

void SetupWindow::testModeSwitched(bool on) {
    if (on) {
        QDir().mkpath(app_.folder.path(u"testmode/reserve"));
    }
    app_.settings.Write(Key::TestMode, bit(on));
    app_.scheduler.FillGrid();
}

void SetupWindow::testTransceiver() {
    auto paint = [this](const QString& text, const QColor& colour) {
        QPalette p = lblStatus_->palette();
        p.setColor(QPalette::Window, colour);
        p.setColor(QPalette::WindowText, Qt::black);
        lblStatus_->setPalette(p);
        lblStatus_->setAutoFillBackground(true);
        lblStatus_->setText(text);
        lblStatus_->repaint();
    };
    paint(u"テスト中..."_s, Qt::yellow);
    const QVariant data = combo1_->currentData();
    const bool serial = data.typeId() == QMetaType::Int;
    const qint16 port =
        serial ? qint16(data.toInt()) : qint16(Val(app_.settings.Read(Key::ComPort)));
    const QString target = serial ? u"/dev/ttyUSB"_s + QString::number(port) : data.toString();
    const bool ok = services_.testTransceiver && services_.testTransceiver(target, port);
    if (!ok) {
        paint(u"失敗"_s, Qt::red);
        app_.prompt.Information(u"COMポート番号を変更して再テストしてください。"_s);
    } else {
        paint(u"成功"_s, Qt::green);
    }
}

void SetupWindow::testLan() {
    if (!app_.webServer || !app_.webServer->HasListened()) {
        app_.settings.Write(Key::WebPort, cboPortNo_->currentText());
        if (app_.webServer) {
            app_.webServer->InitWebServer();
            app_.webServer->SetWebUser(txtWebUser_->text());
            app_.webServer->SetWebPass(txtWebPass_->text());
        }
    }
    if (lblLanAddr_->text().isEmpty()) {
        app_.prompt.Warning(u"IPアドレスの取得に失敗しました。"_s);
        return;
    }
    if (services_.openUrl)
        services_.openUrl(QUrl(lblLanAddr_->text()));
}

void SetupWindow::updateDnsNow() {
    UserPrompt& prompt = app_.prompt;
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
    QPointer<SetupWindow> self(this);
    app_.dynDns.UpdateFromSetup(
        txtDNSUser_->text(), txtDNSPass_->text(), txtDNSHost_->text(), cboPortNo_->currentText(),
        [self, &prompt](const DynDns::ManualResult& r) {
            if (self) {
                self->updateGroups();
                if (r.outcome != DynDns::ManualResult::LookupFailed)
                    self->lblINetAddr_->setText(r.url);
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

void SetupWindow::ok() {
    SettingsStore& s = app_.settings;
    UserPrompt& prompt = app_.prompt;
    const QVariant data = combo1_->currentData();
    if (data.typeId() == QMetaType::Int) {
        s.Write(Key::ComPort, QString::number(data.toInt()));
        s.Write(Key::TransceiverPath, u"");
    } else {
        s.Write(Key::TransceiverPath, data.toString());
    }
    s.Write(Key::TestMode, bit(chkTest_->isChecked()));

    auto bad = [](const QLineEdit* e, QChar needed) {
        return e->text().isEmpty() || !e->text().contains(needed);
    };
    if (chkNotifyMail_->isChecked()) {
        if (bad(txtTo_, u'@'))
            return prompt.Warning(u"通知先アドレスが正しくありません。"_s);
        if (bad(txtFrom_, u'@'))
            return prompt.Warning(u"送信者アドレスが正しくありません。"_s);
        if (bad(txtSMTPServer_, u'.'))
            return prompt.Warning(u"送信サーバーが正しくありません。"_s);
    }
    s.Write(Key::NotifyMail, bit(chkNotifyMail_->isChecked()));
    if (chkAuth_->isChecked()) {
        if (txtUserID_->text().isEmpty())
            return prompt.Warning(u"ユーザーIDが正しくありません。"_s);
        if (txtPassword_->text().isEmpty())
            return prompt.Warning(u"パスワードが正しくありません。"_s);
        if (optPBS_->isChecked() && bad(txtPOPServer_, u'.'))
            return prompt.Warning(u"受信サーバーが正しくありません。"_s);
    }
    // Power control asks for no account on this system: nothing to check.

    const auto scrambled = [](const QLineEdit* e) { return ScramblePassword(u"SET", e->text()); };
    s.Write(Key::NotifyTo, txtTo_->text());
    s.Write(Key::MailFrom, txtFrom_->text());
    s.Write(Key::SMTPServer, txtSMTPServer_->text());
    s.Write(Key::MailUser, txtUserID_->text());
    s.Write(Key::MailPass, scrambled(txtPassword_));
    s.Write(Key::POPServer, txtPOPServer_->text());
    s.Write(Key::PowerUser, txtPowerID_->text());
    s.Write(Key::PowerPass, scrambled(txtPowerPass_));
    s.Write(Key::DnsUser, txtDNSUser_->text());
    s.Write(Key::DnsPass, scrambled(txtDNSPass_));
    s.Write(Key::DnsHost, txtDNSHost_->text());
    s.Write(Key::WebUser, txtWebUser_->text());
    s.Write(Key::WebPass, scrambled(txtWebPass_));
    if (app_.webServer) {
        app_.webServer->SetWebUser(txtWebUser_->text());
        app_.webServer->SetWebPass(txtWebPass_->text());
    }
    if (chkNotifyMail_->isChecked())
        app_.addressWatch.CheckSoon();
    else
        app_.addressWatch.Stop();
    s.Write(Key::HibernOrSuspend, option1_->isChecked() ? u"Suspend" : u"Hibern");
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
    if (!cboPortNo_->currentText().isEmpty())
        app_.settings.Write(Key::WebPort, cboPortNo_->currentText());
    emit app_.events.setupClosed();
}
