#include "setup/AutoStart.h"
#include "setup/PortChoice.h"

#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QFile>
#include <QTcpServer>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct EnvFolder {
    EnvFolder(const char* name, const QString& value) : name_(name), old_(qgetenv(name)) {
        qputenv(name, value.toLocal8Bit());
    }
    ~EnvFolder() { old_.isNull() ? qunsetenv(name_) : qputenv(name_, old_); }
    const char* name_;
    QByteArray old_;
};

QByteArray entry(AutoStart::Scope scope) {
    QFile f(AutoStart::EntryPath(scope));
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("missing");
}

} // namespace

// Each choice enables one scope's entry, hides the other; a refused write is told, choice kept.
TEST(AutoStart, ThreeChoicesAndRefusal) {
    TempFolder t;
    QTemporaryDir env;
    EnvFolder user("XDG_CONFIG_HOME", env.path() + u"/user config"_s);
    EnvFolder system("KESTRAVA_TEST_SYSTEM_AUTOSTART", env.path() + u"/xdg/autostart"_s);
    ScriptedPrompt prompt;
    using AutoStart::Scope;

    AutoStart::Choose(1, t.root(), t.settings, prompt);
    const QByteArray mine = entry(Scope::User);
    EXPECT_TRUE(mine.contains("Exec=") && mine.contains(" --home " + t.root().toUtf8()));
    EXPECT_FALSE(mine.contains("Hidden=true"));
    EXPECT_EQ(entry(Scope::Everyone), "missing"); // nothing to neutralise there
    EXPECT_EQ(t.settings.ReadIni(u"Startup", u"WithWindows"), u"1"_s);

    AutoStart::Choose(2, t.root(), t.settings, prompt);
    EXPECT_TRUE(entry(Scope::User).contains("Hidden=true"));
    EXPECT_FALSE(entry(Scope::Everyone).contains("Hidden=true"));

    AutoStart::Choose(0, t.root(), t.settings, prompt);
    EXPECT_TRUE(entry(Scope::User).contains("Hidden=true"));
    EXPECT_TRUE(entry(Scope::Everyone).contains("Hidden=true"));
    EXPECT_EQ(t.settings.ReadIni(u"Startup", u"WithWindows"), u"0"_s);
    EXPECT_TRUE(prompt.shown.isEmpty()) << prompt.shown.join(u'\n').toStdString();

    // A file where the folder should be: refused even for root.
    t.writeFile(u"not-a-folder", "x");
    EnvFolder refused("KESTRAVA_TEST_SYSTEM_AUTOSTART", t.path(u"not-a-folder/autostart"));
    AutoStart::Choose(2, t.root(), t.settings, prompt);
    ASSERT_EQ(prompt.shown.size(), 1);
    EXPECT_TRUE(prompt.shown[0].startsWith(u"warning:"_s + t.path(u"not-a-folder")));
    EXPECT_TRUE(prompt.shown[0].contains(u"Not a directory"_s));
    EXPECT_EQ(t.settings.ReadIni(u"Startup", u"WithWindows"), u"2"_s);
}

// Both lists leave out taken ports and Streaming/Port; the question offers 80 first.
TEST(PortChoice, TakenAndStreamingPortsAreLeftOut) {
    TempFolder t;
    const QList<quint16> before = FreeWebPorts(t.settings);
    ASSERT_GE(before.size(), 3);
    QTcpServer holder;
    ASSERT_TRUE(holder.listen(QHostAddress::Any, before[0]));
    t.settings.WriteIni(u"Streaming", u"Port", QString::number(before[1]));

    for (const QList<quint16>& ports :
         {FreeWebPorts(t.settings), SpecifyPortCandidates(t.settings)}) {
        EXPECT_FALSE(ports.contains(before[0]));
        EXPECT_FALSE(ports.contains(before[1]));
        EXPECT_TRUE(ports.contains(before[2]));
    }
    EXPECT_LE(SpecifyPortCandidates(t.settings).last(), 8178);
    QTcpServer eighty;
    if (eighty.listen(QHostAddress::Any, 80)) { // allowed here: it must come first
        eighty.close();
        EXPECT_EQ(SpecifyPortCandidates(t.settings).value(0), 80);
    }
}
