#include "desktop/ClimateWindow.h"

#include "climate/ClimateUnits.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLabel>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {
QString ModeText(ClimateMode m) {
    switch (m) {
    case ClimateMode::Auto:
        return u"自動"_s;
    case ClimateMode::Cool:
        return u"冷房"_s;
    case ClimateMode::Heat:
        return u"暖房"_s;
    case ClimateMode::Dry:
        return u"除湿"_s;
    case ClimateMode::Fan:
        break;
    }
    return u"送風"_s;
}
} // namespace

ClimateWindow::ClimateWindow(ClimateUnits& units, QWidget* parent)
    : QWidget(parent, Qt::Window), units_(units) {
    setWindowTitle(u"エアコン"_s);
    setAttribute(Qt::WA_DeleteOnClose);
    list = new QListWidget(this);
    list->setObjectName(u"lstUnits"_s);
    power = new QCheckBox(u"運転"_s, this);
    mode = new QComboBox(this);
    temperature = new QDoubleSpinBox(this);
    temperature->setSuffix(u" ℃"_s);
    fan = new QComboBox(this);
    swing = new QCheckBox(u"スイング"_s, this);
    send = new QPushButton(u"送信"_s, this);
    send->setDefault(true);
    message = new QLabel(this);
    message->setWordWrap(true);
    auto* form = new QFormLayout;
    form->addRow(u"電源"_s, power);
    form->addRow(u"運転モード"_s, mode);
    form->addRow(u"温度"_s, temperature);
    form->addRow(u"風量"_s, fan);
    form->addRow(QString(), swing);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(list);
    layout->addLayout(form);
    layout->addWidget(send);
    layout->addWidget(message);
    connect(list, &QListWidget::currentRowChanged, this, &ClimateWindow::showUnit);
    connect(send, &QPushButton::clicked, this, &ClimateWindow::sendState);
    connect(&units_, &ClimateUnits::unitsChanged, this, &ClimateWindow::fillList);
    connect(&units_, &ClimateUnits::stateChanged, this, [this](const QString& id) {
        if (id == chosen() && !sending_)
            showUnit();
    });
    fillList();
}

QString ClimateWindow::chosen() const {
    const QListWidgetItem* item = list->currentItem();
    return item ? item->data(Qt::UserRole).toString() : QString();
}

void ClimateWindow::fillList() {
    const QString before = chosen();
    list->clear();
    for (const ClimateUnit& u : units_.units()) {
        auto* item = new QListWidgetItem(u.name, list);
        item->setData(Qt::UserRole, u.id);
        if (u.id == before || before.isEmpty())
            list->setCurrentItem(item);
    }
    showUnit();
}

void ClimateWindow::showUnit() {
    const auto unit = units_.unit(chosen());
    for (QWidget* w : std::initializer_list<QWidget*>{power, mode, temperature, fan, swing, send})
        w->setEnabled(unit.has_value());
    if (!unit)
        return;
    const ClimateCaps& caps = unit->caps;
    const ClimateState& s = unit->state;
    power->setChecked(s.power);
    mode->clear();
    for (ClimateMode m : caps.modes)
        mode->addItem(ModeText(m), ClimateModeName(m));
    mode->setCurrentIndex(mode->findData(ClimateModeName(s.mode)));
    temperature->setRange(caps.minTemp, caps.maxTemp);
    temperature->setSingleStep(caps.step);
    temperature->setDecimals(caps.step < 1 ? 1 : 0);
    temperature->setValue(s.temperature);
    fan->clear();
    fan->addItems(caps.fans);
    fan->setCurrentText(s.fan);
    swing->setEnabled(caps.swing);
    swing->setChecked(s.swing);
}

void ClimateWindow::sendState() {
    const auto unit = units_.unit(chosen());
    if (!unit)
        return;
    ClimateState wanted = unit->state;
    wanted.power = power->isChecked();
    if (const auto m = ClimateModeFromName(mode->currentData().toString()))
        wanted.mode = *m;
    wanted.temperature = temperature->value();
    wanted.fan = fan->currentText();
    wanted.swing = swing->isChecked();
    sending_ = true;
    send->setEnabled(false);
    message->setText(u"送信中…"_s);
    units_.setState(
        unit->id, wanted,
        [self = QPointer<ClimateWindow>(this)](const ClimateUnits::Outcome& outcome) {
            if (!self)
                return;
            self->sending_ = false;
            self->send->setEnabled(true);
            self->message->setText(
                outcome.sent ? (outcome.message.isEmpty()
                                    ? u"送信しました（%1）"_s.arg(ClimateStateText(outcome.state))
                                    : outcome.message)
                             : outcome.message);
            self->showUnit();
        },
        {u"desktop"_s, unit->name, ClimateStateText(wanted)});
}
