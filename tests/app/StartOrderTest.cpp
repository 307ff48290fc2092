#include "app/Program.h"
#include "core/Clock.h"
#include "reachability/AddressWatch.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QFileInfo>
#include <QTimer>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

// A first start waits for setup with events going; closing releases the device before windows.
TEST(Program, FirstRunWaitsForSetupAndCloseRunsInOrder) {
    TempFolder t;
    SystemClock clock;
    ScriptedPrompt prompt;
    Program app(t.folder, t.settings, clock, prompt);
    auto anyPort = [](const QList<quint16>&) { return quint16(0); };
    app.webServer.portFallback = anyPort;
    bool setupOpen = false;
    app.setupOpen = [&] { return setupOpen; };
    QObject::connect(&app.events, &ProgramEvents::setupRequested, [&] {
        setupOpen = true;
        QTimer::singleShot(20, [&] {
            setupOpen = false;
            emit app.events.setupClosed();
        });
    });
    QStringList helped;
    app.openHelp = [&](const QString& page) { helped << page; };
    app.Start();
    EXPECT_FALSE(setupOpen);
    EXPECT_EQ(helped, QStringList{u"first-run.html"_s});
    EXPECT_EQ(prompt.shown, QStringList{u"info:"_s + Program::FirstRunText});

    // Without a desktop there is nobody to greet or to show help to.
    ScriptedPrompt quietPrompt;
    Program quiet(t.folder, t.settings, clock, quietPrompt);
    quiet.headless = true;
    quiet.webServer.headless = true;
    quiet.webServer.portFallback = anyPort;
    quiet.openHelp = app.openHelp;
    QObject::connect(&quiet.events, &ProgramEvents::setupRequested, [] { FAIL(); });
    t.settings.WriteIni(u"Tira", u"Testmode", u"1");
    quiet.Start();
    EXPECT_TRUE(QFileInfo(t.path(u"testmode/reserve")).isDir());
    EXPECT_TRUE(quietPrompt.shown.isEmpty());
    EXPECT_EQ(helped.size(), 1);
    EXPECT_TRUE(app.scheduler.timReserve.isActive());
    EXPECT_FALSE(app.addressWatch.watching()); // internet use is off by default

    QStringList order;
    auto note = [&](const QString& step) { return [&order, step] { order << step; }; };
    QObject::connect(&app.events, &ProgramEvents::releaseDevice, note(u"device"_s));
    QObject::connect(&app.events, &ProgramEvents::unloadRemoteWindows, note(u"remotes"_s));
    QObject::connect(&app.events, &ProgramEvents::unloadWindows, note(u"windows"_s));
    QObject::connect(&app.events, &ProgramEvents::closed, note(u"closed"_s));
    app.Close();
    app.Close();
    EXPECT_EQ(order, (QStringList{u"device"_s, u"remotes"_s, u"windows"_s, u"closed"_s}));
    EXPECT_FALSE(app.scheduler.timReserve.isActive());
}
