#include "setup/PowerPage.h"

#include "core/Password.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "setup/AutoStart.h"
#include "setup/SetupForm.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using namespace setupform;

PowerPage::PowerPage(Parts parts, QWidget* parent) : QWidget(parent), parts_(parts) {
    chkPowerCon_ = named(new QCheckBox(u"電源管理機能を有効にする"_s), u"chkPowerCon"_s);
    txtPowerID_ = field(u"txtPowerID"_s);
    txtPowerPass_ = field(u"txtPowerPass"_s, true);
    // Waking needs no account here: both fields stay off.
    txtPowerID_->setEnabled(false);
    txtPowerPass_->setEnabled(false);
    option1_ = named(new QRadioButton(u"サスペンド（スリープ）"_s), u"Option1"_s);
    option2_ = named(new QRadioButton(u"ハイバネーション（休止状態）"_s), u"Option2"_s);
    auto* sleepKind = new QButtonGroup(this);
    sleepKind->addButton(option1_);
    sleepKind->addButton(option2_);
    connect(chkPowerCon_, &QCheckBox::clicked, this, [this](bool on) {
        parts_.settings.Write(Key::PowerControl, bit(on));
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
    optAutoStart_ = new QButtonGroup(this);
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
            AutoStart::Choose(id, parts_.folder.root(), parts_.settings, parts_.prompt);
    });

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(power);
    layout->addWidget(start);
    layout->addStretch();
}

void PowerPage::load() {
    SettingsStore& s = parts_.settings;
    loading_ = true;
    chkPowerCon_->setChecked(s.IsOn(Key::PowerControl));
    txtPowerID_->setText(s.Read(Key::PowerUser));
    txtPowerPass_->setText(ScramblePassword(u"RESET", s.Read(Key::PowerPass)));
    (s.Read(Key::HibernOrSuspend) == u"Suspend" ? option1_ : option2_)->setChecked(true);
    if (QAbstractButton* b = optAutoStart_->button(int(Val(s.Read(Key::WithWindows)))))
        b->setChecked(true);
    loading_ = false;
}

void PowerPage::save() {
    // Power control asks for no account on this system: nothing to check.
    parts_.settings.Write(Key::PowerUser, txtPowerID_->text());
    parts_.settings.Write(Key::PowerPass, ScramblePassword(u"SET", txtPowerPass_->text()));
    parts_.settings.Write(Key::HibernOrSuspend, option1_->isChecked() ? u"Suspend" : u"Hibern");
}
