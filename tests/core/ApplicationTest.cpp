#include "core/Application.h"
#include "core/Clock.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QDir>
#include <QFileInfo>
#include <QTimer>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct Fixture {
    TempFolder t;
    SystemClock clock;
    ScriptedPrompt prompt;
    Application app{t.folder, t.settings, clock, prompt};
};

} // namespace

TEST(Application, StartCreatesTheFoldersAndWritesMissingPicturesOnly) {
    Fixture f;
    f.t.settings.WriteIni(u"WebServer", u"Port", u"8080");
    f.t.writeFile(u"pic/up.gif", "mine");
    f.app.Start();
    EXPECT_TRUE(QFileInfo(f.t.path(u"IRSignals")).isDir());
    EXPECT_TRUE(QFileInfo(f.t.path(u"reserve")).isDir());
    EXPECT_TRUE(QFileInfo(f.t.path(u"pic/panelA.jpg")).isFile());
    EXPECT_TRUE(QFileInfo(f.t.path(u"pic/power-p.gif")).isFile());
    EXPECT_EQ(f.t.readFile(u"pic/up.gif"), QByteArray("mine"));
    EXPECT_TRUE(f.prompt.shown.isEmpty());
    EXPECT_TRUE(f.app.timReserve.isActive());
}

TEST(Application, FirstRunGreetsAndWaitsForSetupToClose) {
    Fixture f;
    bool setupShown = false;
    QObject::connect(&f.app, &Application::setupRequested, [&] {
        setupShown = true;
        f.app.state.SetupOpen = true;
        QTimer::singleShot(20, [&] {
            f.app.state.SetupOpen = false;
            emit f.app.setupClosed();
        });
    });
    f.app.Start();
    EXPECT_TRUE(setupShown);
    EXPECT_FALSE(f.app.state.SetupOpen);
    ASSERT_EQ(f.prompt.shown.size(), 1);
    EXPECT_EQ(f.prompt.shown[0], u"info:"_s + Application::FirstRunText);
    EXPECT_TRUE(Application::FirstRunText.contains(u"\r\n\r\n初めて起動されましたので"_s));
}

TEST(Application, InternetUseChoosesTheAddressTimers) {
    for (const QString& internet : {u"1"_s, u"0"_s, u""_s}) {
        Fixture f;
        f.t.settings.WriteIni(u"WebServer", u"Port", u"80");
        if (!internet.isEmpty())
            f.t.settings.WriteIni(u"Options", u"Internet", internet);
        f.app.state.GlobalAddr = u"old.example"_s;
        f.app.Start();
        bool on = internet == u"1";
        EXPECT_EQ(f.app.timAddrCheck.isActive(), on);
        EXPECT_EQ(f.app.timUPnPDelay.isActive(), on);
        EXPECT_EQ(f.app.timAddrCheckL.isActive(), !on);
        EXPECT_EQ(f.app.state.GlobalAddr.isEmpty(), !on);
    }
}

TEST(Application, CloseRunsInOrderOnceAndStopsTheTimers) {
    Fixture f;
    f.t.settings.WriteIni(u"WebServer", u"Port", u"8080");
    f.app.Start();
    QStringList order;
    QObject::connect(&f.app, &Application::unloadRemoteWindows,
                     [&] { order << (f.app.state.AppClosing ? u"remotes-late"_s : u"remotes"_s); });
    QObject::connect(&f.app, &Application::unloadWindows, [&] {
        order << (f.app.state.AppClosing ? u"windows"_s : u"windows-early"_s);
    });
    QObject::connect(&f.app, &Application::closed, [&] { order << u"closed"_s; });
    f.app.Close();
    f.app.Close();
    EXPECT_EQ(order, (QStringList{u"remotes"_s, u"windows"_s, u"closed"_s}));
    EXPECT_FALSE(f.app.timReserve.isActive());
    EXPECT_FALSE(f.app.timAddrCheckL.isActive());
}
