#include "learning/RemoteEditor.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "infrared/Transceiver.h"
#include "remotes/Registry.h"
#include "remotes/RemoteLauncher.h"
#include "remotes/RemoteWindow.h"

#include <QComboBox>
#include <QEvent>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>

using namespace Qt::StringLiterals;

const QString RemoteEditor::TestModeText = u"テストモードではリモコン信号の学習はできません。"_s;

QString RemoteEditor::DeleteRemoteText(const QString& deviceName) {
    return u"機器名:"_s + deviceName +
           u" の記録済みリモコン信号はすべて削除されます。　よろしいですか？"_s;
}

RemoteEditor::RemoteEditor(LearningParts parts, Transceiver& device, RemoteLauncher& remotes,
                           QWidget* parent)
    : LearningWindow(parts, device, remotes, u"frmEdit"_s, u"Edit"_s, u"機器名"_s, parent) {
    auto* row = new QHBoxLayout(frameDevice);
    cmbDeviceName = new QComboBox(frameDevice);
    cmbDeviceName->setObjectName(u"cmbDeviceName"_s);
    cmbDeviceName->setMinimumContentsLength(12);
    cmdDelRem = new QPushButton(u"選択した機器を削除"_s, frameDevice);
    cmdDelRem->setObjectName(u"cmdDelRem"_s);
    row->addWidget(lblDevice);
    row->addWidget(cmbDeviceName, 1);
    row->addWidget(cmdDelRem);
    build(u"信号の追加と削除"_s);

    // The design belongs to the remote; the options only show it.
    for (QRadioButton* option : optSelRemote)
        option->setEnabled(false);
    txtFunc->installEventFilter(this);
    connect(cmbDeviceName, &QComboBox::activated, this, [this] {
        if (busy())
            return;
        unloadDesigns();
        selectDevice();
    });
    connect(cmdDelRem, &QPushButton::clicked, this, &RemoteEditor::deleteRemote);
}

void RemoteEditor::Load() {
    if (IsTestMode(app_.settings)) {
        refuseInTestMode(TestModeText);
        return;
    }
    fillDevices();
    selectDevice();
}

QString RemoteEditor::deviceName() const {
    return cmbDeviceName->currentText();
}

int RemoteEditor::slot() const {
    return cmbDeviceName->currentData().toInt();
}

void RemoteEditor::openPortSetup() {
    if (device_.SpecifyPort)
        device_.SpecifyPort();
}

bool RemoteEditor::eventFilter(QObject* watched, QEvent* event) {
    if (watched == txtFunc && event->type() == QEvent::FocusIn && !firstFocusDone_) {
        firstFocusDone_ = true;
        setStep(0);
    }
    return LearningWindow::eventFilter(watched, event);
}

void RemoteEditor::fillDevices() {
    cmbDeviceName->clear();
    for (const EditableRemote& r : EditableRemotes(app_.settings))
        cmbDeviceName->addItem(r.name, r.slot);
    cmbDeviceName->setCurrentIndex(cmbDeviceName->count() > 0 ? 0 : -1);
}

void RemoteEditor::selectDevice() {
    // Marks and new signals belong to the remote they were made for.
    deleted_.clear();
    for (int n = 1; n <= session_.count(); ++n)
        session_.Remove(n);
    lstSignals->clear();
    captions_.fill(QString());
    shownDesign_ = 0;

    const Design* design = nullptr;
    if (!deviceName().isEmpty())
        design = DesignByText(app_.settings.Read(Key::RemoteDesign(slot())));
    const bool usable = design != nullptr;
    for (QLabel* step : lblStep)
        step->setEnabled(usable);
    for (QWidget* w : std::initializer_list<QWidget*>{Label1, Label2, txtFunc, cmdFuncOK, lblState,
                                                      lstSignals, cmdDel})
        w->setEnabled(usable);
    for (QRadioButton* option : optSelRemote) {
        option->setAutoExclusive(false);
        option->setChecked(false);
        option->setAutoExclusive(true);
    }
    if (!design)
        return;

    optSelRemote[size_t(design->optionIndex)]->setChecked(true);
    for (int k = 0; k <= design->lastButtonId(); ++k) {
        const QString function = app_.settings.Read(Key::RemoteButton(slot(), k));
        if (function.isEmpty())
            continue;
        captions_[size_t(k)] = function;
        const IrCode code = codes_.codeOf(SignalFilePath(app_.folder, deviceName(), function));
        addLine(function, k, k, false, code.decoded() ? CodeDisplay(code) : QString());
    }
    showDesign(design->id);
}

void RemoteEditor::deleteLine(QListWidgetItem* item) {
    const int data = item->data(ItemDataRole).toInt();
    if (item->data(NewSignalRole).toBool()) {
        // Learned in this window and not stored yet: it simply is not stored.
        session_.Remove(data);
        return;
    }
    deleted_.push_back({item->data(FunctionRole).toString(), data});
}

void RemoteEditor::finish() {
    QString why;
    if (!deviceName().isEmpty() && !StoreRemoteEdit(app_.folder, app_.settings, slot(),
                                                    deviceName(), deleted_, session_, &why)) {
        app_.prompt.Warning(NotStoredText + u'\n' + why);
        return;
    }
    device_.DeActivateTira();
    emit devicesChanged();
    closeWindow();
}

void RemoteEditor::deleteRemote() {
    if (busy() || deviceName().isEmpty())
        return;
    if (app_.prompt.Question(DeleteRemoteText(deviceName())) != UserPrompt::Answer::Yes)
        return;
    DeleteRemote(app_.folder, app_.settings, slot(), deviceName());
    unloadDesigns();
    fillDevices();
    selectDevice();
    emit devicesChanged();
}
