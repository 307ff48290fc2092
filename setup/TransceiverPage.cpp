#include "setup/TransceiverPage.h"

#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "remotes/Registry.h"
#include "reservations/Scheduler.h"
#include "setup/SetupForm.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>

using namespace Qt::StringLiterals;
using namespace setupform;

const QString TransceiverPage::SimulatorCaption = u"シミュレーター"_s;

TransceiverPage::TransceiverPage(Parts parts, QWidget* parent)
    : QWidget(parent), parts_(std::move(parts)) {
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
    connect(cmdTest_, &QPushButton::clicked, this, &TransceiverPage::testTransceiver);
    connect(chkTest_, &QCheckBox::clicked, this, &TransceiverPage::testModeSwitched);

    auto* grid = new QGridLayout(this);
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
}

void TransceiverPage::load() {
    SettingsStore& s = parts_.settings;
    for (int n = 1; n <= 16; ++n)
        combo1_->addItem(u"COM"_s + QString::number(n), n - 1);
    if (parts_.devices)
        for (const auto& [path, note] : parts_.devices())
            combo1_->addItem(note.isEmpty() ? path : path + u"  "_s + note, path);
    combo1_->addItem(SimulatorCaption, u"sim"_s);

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
}

void TransceiverPage::save() {
    SettingsStore& s = parts_.settings;
    const QVariant data = combo1_->currentData();
    if (data.typeId() == QMetaType::Int) {
        s.Write(Key::ComPort, QString::number(data.toInt()));
        s.Write(Key::TransceiverPath, u"");
    } else {
        s.Write(Key::TransceiverPath, data.toString());
    }
    s.Write(Key::TestMode, bit(chkTest_->isChecked()));
}

void TransceiverPage::testModeSwitched(bool on) {
    if (on)
        QDir().mkpath(parts_.folder.path(u"testmode/reserve"));
    parts_.settings.Write(Key::TestMode, bit(on));
    parts_.scheduler.FillGrid();
}

void TransceiverPage::testTransceiver() {
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
        serial ? qint16(data.toInt()) : qint16(Val(parts_.settings.Read(Key::ComPort)));
    const QString target = serial ? u"/dev/ttyUSB"_s + QString::number(port) : data.toString();
    if (!parts_.test || !parts_.test(target, port)) {
        paint(u"失敗"_s, Qt::red);
        parts_.prompt.Information(u"COMポート番号を変更して再テストしてください。"_s);
    } else {
        paint(u"成功"_s, Qt::green);
    }
}
