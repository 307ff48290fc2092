#include "learning/LearningWizard.h"

#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "core/UserPrompt.h"
#include "infrared/Transceiver.h"
#include "remotes/Registry.h"
#include "remotes/RemoteLauncher.h"
#include "remotes/RemoteWindow.h"

#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QRadioButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

const QString LearningWizard::TestModeText = u"テストモードではリモコン信号の学習は行えません。"_s;
const QString LearningWizard::AirconText =
    u"重要：エアコンの信号を学習するにはコツが必要です。\r\n"
    u"\r\n"
    u"温度などを液晶表示するタイプのエアコン用リモコンの操作を学習しようとしているのであれば、\r\n"
    u"この型（エアコン6ボタン）ではすべての操作を学習することができません。\r\n"
    u"まずヘルプボタンを押して説明を読んでから別の型を選択するなどして学習を開始してください。\r\n"
    u"\r\n"
    u"この型（エアコン6ボタン）で学習を開始しますか？"_s;
const QString LearningWizard::OverwriteText =
    u"同じ機器名がすでに登録されています。上書きするには'はい'を、"
    u"機器名を修正するには'いいえ'を選択してください。"_s;
const QString LearningWizard::NoFreeSlotText =
    u"登録できる機器は1000台までです。"
    u"「学習済みリモコンの編集」で不要な機器を削除してから、もう一度「完了」を押してください。"_s;

namespace {
constexpr int AirconOption = 2;
}

LearningWizard::LearningWizard(LearningParts parts, Transceiver& device, RemoteLauncher& remotes,
                               QWidget* parent)
    : LearningWindow(parts, device, remotes, u"frmStudy"_s, u"Study"_s,
                     u"機器名 （例：ビデオ、テレビ、エアコンなど）"_s, parent) {
    auto* box = new QVBoxLayout(frameDevice);
    txtDeviceName = new QLineEdit(u"無題"_s, frameDevice);
    txtDeviceName->setObjectName(u"txtDeviceName"_s);
    box->addWidget(lblDevice);
    box->addWidget(txtDeviceName);
    build(u"信号の学習"_s);

    connect(txtDeviceName, &QLineEdit::textChanged, this, [this](const QString& text) {
        warnOnBadName(text, &deviceWarned_);
        QPalette p = lblDevice->palette();
        p.setColor(QPalette::WindowText, Qt::black);
        lblDevice->setPalette(p);
        if (RemoteWindow* w = designWindow())
            w->setDeviceName(text);
    });
    for (size_t i = 0; i < optSelRemote.size(); ++i)
        connect(optSelRemote[i], &QRadioButton::clicked, this,
                [this, i] { optionClicked(int(i)); });
    optSelRemote[0]->setChecked(true);
}

void LearningWizard::Load() {
    showDesign(selectedDesign());
    QPalette p = lblDevice->palette();
    p.setColor(QPalette::WindowText, Qt::red);
    lblDevice->setPalette(p);
    setStep(0);
    if (IsTestMode(app_.settings))
        refuseInTestMode(TestModeText);
}

QString LearningWizard::deviceName() const {
    return ShiftJis::RoundTrip(txtDeviceName->text());
}

void LearningWizard::optionClicked(int optionIndex) {
    unloadDesigns();
    remotes_.RemoteLive = false;
    shownDesign_ = 0;
    if (optionIndex == AirconOption &&
        app_.prompt.QuestionWithHelp(AirconText, u"learning.html#aircon"_s) !=
            UserPrompt::Answer::Yes)
        return; // the option stays chosen, and no picture shows
    showDesign(DesignByOption(optionIndex)->id);
}

void LearningWizard::signalLearned() {
    // From the first learned signal on, the design is fixed.
    Frame4->setEnabled(false);
}

void LearningWizard::deleteLine(QListWidgetItem* item) {
    session_.Remove(item->data(ItemDataRole).toInt());
}

void LearningWizard::finish() {
    if (lstSignals->count() > 0) {
        if (const QString problem = NameProblem(txtDeviceName->text()); !problem.isEmpty()) {
            app_.prompt.Warning(problem);
            return;
        }
        const QString name = deviceName();
        const RemoteSlot slot = FindRemoteSlot(app_.settings, name);
        if (slot.existingSlot && app_.prompt.Question(OverwriteText) != UserPrompt::Answer::Yes)
            return;
        if (!slot.slot()) {
            app_.prompt.Warning(NoFreeSlotText);
            return;
        }
        QString why;
        if (!StoreLearnedRemote(app_.folder, app_.settings, slot, name, selectedDesign(), session_,
                                &why)) {
            app_.prompt.Warning(NotStoredText + u'\n' + why);
            return;
        }
    }
    device_.DeActivateTira();
    emit devicesChanged();
    closeWindow();
}
