// Pages as a real browser shows them: the program runs headless on a folder of
// the test's own, and Debian's chromium loads its pages.
#include "core/Settings.h"
#include "support/ProgramProcess.h"

#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QString Chromium = u"/usr/bin/chromium"_s;

QString dumpDom(const QString& url) {
    QTemporaryDir profile;
    QProcess browser;
    browser.start(Chromium,
                  {u"--headless"_s, u"--no-sandbox"_s, u"--disable-gpu"_s, u"--disable-quic"_s,
                   u"--no-first-run"_s, u"--disable-background-networking"_s,
                   u"--disable-component-update"_s, u"--disable-sync"_s,
                   u"--user-data-dir="_s + profile.path(), u"--dump-dom"_s, url});
    if (!browser.waitForFinished(60000))
        browser.kill();
    return QString::fromUtf8(browser.readAllStandardOutput());
}

} // namespace

TEST(Browser, MenuAndDeviceListKeepTheirJapaneseText) {
    if (!QFileInfo(Chromium).isExecutable())
        GTEST_SKIP() << "chromium is not installed";
    QTemporaryDir tmp;
    {
        SettingsStore settings(tmp.path() + u"/setting.ini"_s);
        settings.WriteIni(u"WebServer", u"Port", u"0");
        settings.WriteIni(u"Options", u"PowerControl", u"1");
        settings.WriteIni(u"Remote-1", u"Device", u"テレビ");
        settings.WriteIni(u"Remote-1", u"Design", u"4");
        settings.WriteIni(u"Remote-7", u"Device", u"エアコン①");
        settings.WriteIni(u"Remote-7", u"Design", u"3");
    }
    ProgramProcess program({u"--headless"_s, u"--home"_s, tmp.path()});
    const quint16 port = program.webPort();
    ASSERT_NE(port, 0) << program.log().toStdString();
    const QString base = u"http://127.0.0.1:"_s + QString::number(port);

    const QString menu = dumpDom(base + u"/default.asp"_s);
    EXPECT_TRUE(menu.contains(u"<b>Kestravaの操作</b>"_s)) << menu.toStdString();
    EXPECT_TRUE(menu.contains(u"<a href=\"confirm.asp\">休止状態にする</a>"_s));

    const QString list = dumpDom(base + u"/remote.asp"_s);
    EXPECT_TRUE(list.contains(
        u"<a href=\"remote4.asp?DevID=1&amp;Button=&amp;Device=テレビ\">テレビ</a>"_s))
        << list.toStdString();
    EXPECT_TRUE(list.contains(u">エアコン①</a>"_s));

    // The bare address is bounced once and then lands on the menu.
    EXPECT_TRUE(dumpDom(base + u"/"_s).contains(u"Kestravaの操作"_s));
}
