#pragma once

#include "app/Program.h"
#include "desktop/MainWindow.h"
#include "support/FixedClock.h"
#include "support/MainParts.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QAbstractButton>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

// The program and its main window on Monday 2026/11/23 12:00:30, optionally in test mode.
struct Desktop {
    explicit Desktop(bool testMode = false) {
        if (testMode)
            t.settings.WriteIni(u"Tira", u"Testmode", u"1");
        window = std::make_unique<MainWindow>(MainPartsOf(app));
    }
    // The control of that name in `in`, or in the main window.
    template <typename T = QWidget> T* find(const QString& name, QWidget* in = nullptr) {
        T* w = (in ? in : window.get())->findChild<T*>(name);
        EXPECT_NE(w, nullptr) << name.toStdString();
        return w;
    }
    void click(const QString& name, QWidget* in = nullptr) {
        QTest::mouseClick(find<QAbstractButton>(name, in), Qt::LeftButton);
    }

    TempFolder t;
    FixedClock clock{QDateTime(QDate(2026, 11, 23), QTime(12, 0, 30))};
    ScriptedPrompt prompt;
    Program app{t.folder, t.settings, clock, prompt};
    std::unique_ptr<MainWindow> window;
};
