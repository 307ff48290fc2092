#include "setup/SpecifyPortWindow.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "setup/PortChoice.h"

#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

SpecifyPortWindow::SpecifyPortWindow(SettingsStore& settings, QWidget* parent)
    : QDialog(parent), settings_(settings) {
    setObjectName(u"frmSpecifyPort"_s);
    setWindowTitle(u"Kestrava"_s);
    setModal(true);
    cboPortNo_ = new QComboBox;
    cboPortNo_->setObjectName(u"cboPortNo"_s);
    for (quint16 port : SpecifyPortCandidates(settings_))
        cboPortNo_->addItem(QString::number(port));
    auto* ok = new QPushButton(u"OK"_s);
    ok->setObjectName(u"Command1"_s);
    ok->setDefault(true);
    connect(ok, &QPushButton::clicked, this, [this] {
        settings_.Write(Key::WebPort, cboPortNo_->currentText());
        accept();
    });

    auto* frame = new QGroupBox(u"ポート番号の選択"_s);
    auto* grid = new QGridLayout(frame);
    grid->addWidget(new QLabel(u"ポート"_s), 0, 0);
    grid->addWidget(cboPortNo_, 0, 1);
    grid->addWidget(new QLabel(u"次のポートをウェブサーバーに使用します"_s), 1, 0, 1, 2);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(frame);
    layout->addWidget(ok, 0, Qt::AlignRight);
}
