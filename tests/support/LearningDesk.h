#pragma once

#include "core/ProgramEvents.h"
#include "core/Settings.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "learning/LearningLauncher.h"
#include "learning/LearningWizard.h"
#include "learning/RemoteEditor.h"
#include "remotes/Registry.h"
#include "remotes/RemoteLauncher.h"
#include "remotes/RemoteWindow.h"
#include "support/FixedClock.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QCoreApplication>
#include <QInputMethodEvent>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <memory>

// The simulated transceiver, the on-screen remotes and the learning windows.
struct LearningDesk {
    LearningDesk() {
        t.folder.CreateDataFolders();
        t.settings.WriteIni(u"Tira", u"Device", u"sim");
        device.captureTimeoutMs = 2000;
        device.factory = [this](const QString&) {
            auto sim = std::make_unique<SimDriver>(t.path(u"sim-transmit.log"));
            sim->captureDelayMs = captureDelayMs;
            return sim;
        };
    }

    SimDriver* sim() { return dynamic_cast<SimDriver*>(device.driver()); }
    LearningWizard* study() {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return qobject_cast<LearningWizard*>(windows.OpenStudy());
    }
    RemoteEditor* edit() {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return qobject_cast<RemoteEditor*>(windows.OpenEdit());
    }

    // When the window next asks for the picture, clicks picture button `button`.
    void clickPictureWhenAsked(LearningWindow* w, int button) {
        auto connection = std::make_shared<QMetaObject::Connection>();
        *connection = QObject::connect(w, &LearningWindow::stepChanged, w, [=, this](int step) {
            if (step != 2)
                return;
            QObject::disconnect(*connection);
            const int design = w->selectedDesign();
            QTimer::singleShot(0, w, [=, this] {
                RemoteWindow* picture = remotes.window(design);
                if (picture)
                    QTest::mouseClick(picture->imgB(button), Qt::LeftButton);
            });
        });
    }
    // Typing: Japanese arrives as an input method's commit, the rest as keys.
    static void type(QLineEdit* edit, const QString& text) {
        for (QChar c : text) {
            if (c.unicode() < 0x80) {
                QTest::keyClicks(edit, QString(c));
            } else {
                QInputMethodEvent commit;
                commit.setCommitString(QString(c));
                QCoreApplication::sendEvent(edit, &commit);
            }
        }
    }
    // Types a function name, presses 決定 and clicks the picture when asked.
    void learn(LearningWindow* w, const QString& function, int button) {
        w->txtFunc->clear();
        type(w->txtFunc, function);
        clickPictureWhenAsked(w, button);
        QTest::mouseClick(w->cmdFuncOK, Qt::LeftButton);
    }

    QStringList lines(LearningWindow* w) const {
        QStringList texts;
        for (int i = 0; i < w->lstSignals->count(); ++i)
            texts << w->lstSignals->item(i)->text();
        return texts;
    }
    QString key(int slot, QStringView key) { return t.settings.ReadIni(RemoteSection(slot), key); }
    // A learned remote with a real signal file per function.
    void remote(int slot, const QString& name, int design, const QStringList& functions) {
        t.writeRemote(slot, name, design, functions);
        for (int k = 0; k < functions.size(); ++k)
            WriteSignalFile(SignalFilePath(t.folder, name, functions[k]),
                            SimDriver::NecSignal(0x10, uint8_t(k)));
    }
    // Lines of the simulator's transmission log.
    int sent() const { return int(t.readFile(u"sim-transmit.log").count('\n')); }

    int captureDelayMs = 20;
    TempFolder t;
    ScriptedPrompt prompt;
    FixedClock clock;
    ProgramEvents events;
    Transceiver device{t.folder, t.settings, prompt};
    RemoteLauncher remotes{t.settings, events, device};
    LearningLauncher windows{{t.folder, t.settings, prompt, events}, device, remotes};
};
