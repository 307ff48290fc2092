#include "setup/ReservePage.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "setup/SetupForm.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>

using namespace Qt::StringLiterals;
using namespace setupform;

namespace {
const QStringList IntervalSeconds = {u"0.1"_s, u"0.2"_s, u"0.5"_s, u"1"_s,
                                     u"2"_s,   u"3"_s,   u"5"_s,   u"10"_s};
} // namespace

ReservePage::ReservePage(Parts parts, QWidget* parent) : QWidget(parent), parts_(std::move(parts)) {
    cmbInterval_ = named(new QComboBox, u"cmbInterval"_s);
    cmbInterval_->addItems(IntervalSeconds);
    chkTakePic_ = named(new QCheckBox(u"操作対象機器をカメラで撮影してウェブページに表示する"_s),
                        u"chkTakePic"_s);
    cmdTakePicSetup_ = named(new QPushButton(u"カメラの設定"_s), u"cmdTakePicSetup"_s);
    connect(cmbInterval_, &QComboBox::currentIndexChanged, this, [this](int i) {
        if (loading_ || i < 0)
            return;
        const qint64 ms = qRound64(cmbInterval_->itemText(i).toDouble() * 1000);
        parts_.settings.Write(Key::Interval, QString::number(ms));
    });
    connect(chkTakePic_, &QCheckBox::clicked, this, [this](bool on) {
        if (loading_)
            return;
        cmdTakePicSetup_->setEnabled(on);
        if (parts_.takePic)
            parts_.takePic(on);
        else
            parts_.settings.Write(Key::TakePic, bit(on));
    });
    connect(cmdTakePicSetup_, &QPushButton::clicked, this, [this] {
        if (parts_.cameraSettings)
            parts_.cameraSettings();
    });

    auto* grid = new QGridLayout(this);
    grid->addWidget(new QLabel(u"同じ時刻の予約を実行する間隔"_s), 0, 0);
    grid->addWidget(cmbInterval_, 0, 1);
    grid->addWidget(new QLabel(u"秒"_s), 0, 2);
    grid->addWidget(chkTakePic_, 1, 0, 1, 4);
    grid->addWidget(cmdTakePicSetup_, 2, 0, Qt::AlignLeft);
    grid->setColumnStretch(3, 1);
    grid->setRowStretch(3, 1);
}

void ReservePage::load() {
    SettingsStore& s = parts_.settings;
    loading_ = true;
    // The pause in force: 2 s while the key is empty, and one not on the list
    // (written by hand) as it stands.
    const QString interval = s.Read(Key::Interval);
    const QString seconds =
        QString::number(double(interval.isEmpty() ? 2000 : Val(interval)) / 1000);
    if (cmbInterval_->findText(seconds) < 0)
        cmbInterval_->addItem(seconds);
    cmbInterval_->setCurrentText(seconds);
    chkTakePic_->setChecked(s.IsOn(Key::TakePic));
    cmdTakePicSetup_->setEnabled(chkTakePic_->isChecked());
    loading_ = false;
}
