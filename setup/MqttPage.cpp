#include "setup/MqttPage.h"

#include "core/Password.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "setup/SetupForm.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>

using namespace Qt::StringLiterals;
using namespace setupform;

MqttPage::MqttPage(Parts parts, QWidget* parent) : QWidget(parent), parts_(std::move(parts)) {
    txtServer_ = field(u"txtMqttServer"_s);
    txtServer_->setPlaceholderText(u"host:1883 / mqtts://host:8883（空欄で使わない）"_s);
    txtCAFile_ = field(u"txtMqttCAFile"_s);
    txtUser_ = field(u"txtMqttUser"_s);
    txtPass_ = field(u"txtMqttPass"_s, true);
    txtNodeId_ = field(u"txtMqttNodeId"_s);
    txtTopic_ = field(u"txtMqttTopic"_s);
    chkDiscovery_ = named(new QCheckBox(u"Home Assistant に自動登録する（discovery）"_s),
                          u"chkMqttDiscovery"_s);
    txtPrefix_ = field(u"txtMqttPrefix"_s);
    txtPrefix_->setPlaceholderText(u"homeassistant"_s);
    chkListen_ = named(new QCheckBox(u"受信したリモコンの信号を知らせる"_s), u"chkMqttListen"_s);

    connect(chkDiscovery_, &QCheckBox::clicked, this, [this](bool on) {
        parts_.settings.Write(Key::MqttDiscovery, bit(on));
        txtPrefix_->setEnabled(on);
        switched();
    });
    connect(chkListen_, &QCheckBox::clicked, this, [this](bool on) {
        parts_.settings.Write(Key::MqttListen, bit(on));
        switched();
    });
    connect(txtNodeId_, &QLineEdit::textChanged, this,
            [this](const QString& id) { txtTopic_->setPlaceholderText(u"kestrava/"_s + id); });

    auto* grid = new QGridLayout(this);
    int row = 0;
    const auto add = [&](const QString& caption, QWidget* w) {
        grid->addWidget(new QLabel(caption), row, 0);
        grid->addWidget(w, row++, 1);
    };
    add(u"サーバー"_s, txtServer_);
    add(u"CA証明書ファイル"_s, txtCAFile_);
    add(u"ユーザー名"_s, txtUser_);
    add(u"パスワード"_s, txtPass_);
    add(u"ノードID"_s, txtNodeId_);
    add(u"トピック"_s, txtTopic_);
    grid->addWidget(chkDiscovery_, row++, 0, 1, 2);
    add(u"discovery の接頭辞"_s, txtPrefix_);
    grid->addWidget(chkListen_, row++, 0, 1, 2);
    grid->setColumnStretch(1, 1);
    grid->setRowStretch(row, 1);
}

void MqttPage::load() {
    SettingsStore& s = parts_.settings;
    txtServer_->setText(s.Read(Key::MqttServer));
    txtCAFile_->setText(s.Read(Key::MqttCAFile));
    txtUser_->setText(s.Read(Key::MqttUser));
    txtPass_->setText(ScramblePassword(u"RESET", s.Read(Key::MqttPass)));
    txtNodeId_->setText(s.Read(Key::MqttNodeId));
    txtTopic_->setText(s.Read(Key::MqttTopic));
    // Discovery is on unless switched off.
    chkDiscovery_->setChecked(s.Read(Key::MqttDiscovery) != u"0");
    txtPrefix_->setText(s.Read(Key::MqttDiscoveryPrefix));
    txtPrefix_->setEnabled(chkDiscovery_->isChecked());
    chkListen_->setChecked(s.IsOn(Key::MqttListen));
}

QString MqttPage::problem() const {
    QString server = txtServer_->text().trimmed();
    for (const QString& scheme : {u"mqtt://"_s, u"mqtts://"_s})
        if (server.startsWith(scheme, Qt::CaseInsensitive))
            server = server.mid(scheme.size());
    const qsizetype colon = server.lastIndexOf(u':');
    if (colon >= 0 && !server.contains(u']')) {
        bool ok = false;
        const uint port = server.mid(colon + 1).toUInt(&ok);
        if (!ok || port == 0 || port > 65535 || colon == 0)
            return u"MQTT サーバーは「ホスト名:ポート番号」の形で入力してください。"_s;
    }
    if (server.contains(u' ') || server.contains(u'/'))
        return u"MQTT サーバーの名前に使えない文字があります。"_s;
    if (!IsStorablePassword(txtPass_->text()))
        return u"MQTT のパスワードには半角英数字と記号だけを使ってください。"_s;
    const QString topic = txtTopic_->text().trimmed();
    if (topic.contains(u'#') || topic.contains(u'+') || topic.endsWith(u'/'))
        return u"MQTT のトピックに # や + は使えません（末尾の / も不要です）。"_s;
    return {};
}

void MqttPage::save() {
    SettingsStore& s = parts_.settings;
    s.Write(Key::MqttServer, txtServer_->text().trimmed());
    s.Write(Key::MqttCAFile, txtCAFile_->text().trimmed());
    s.Write(Key::MqttUser, txtUser_->text());
    s.Write(Key::MqttPass, ScramblePassword(u"SET", txtPass_->text()));
    s.Write(Key::MqttNodeId, txtNodeId_->text().trimmed());
    s.Write(Key::MqttTopic, txtTopic_->text().trimmed());
    s.Write(Key::MqttDiscoveryPrefix, txtPrefix_->text().trimmed());
    switched();
}

void MqttPage::switched() {
    if (parts_.changed)
        parts_.changed();
}
