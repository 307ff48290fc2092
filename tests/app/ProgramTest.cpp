#include "core/Settings.h"
#include "core/Wait.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "support/HttpClient.h"
#include "support/ProgramProcess.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

QStringList home(const QString& dir) {
    return {u"--headless"_s, u"--home"_s, dir};
}

} // namespace

TEST(Program, RunsHeadlessOnItsFolderAndClosesOnSigterm) {
    QTemporaryDir tmp;
    const QString dir = tmp.path() + u"/home"_s;
    auto env = QProcessEnvironment::systemEnvironment();
    env.insert(u"KESTRAVA_HOME"_s, dir); // the folder when --home is not given
    Program p({u"--headless"_s}, env);
    ASSERT_TRUE(p.waitForLog(u"started on "_s + dir)) << p.log().toStdString();

    for (auto sub : {u"IRSignals"_s, u"reserve"_s, u"pic"_s})
        EXPECT_TRUE(QFileInfo(dir + u'/' + sub).isDir()) << sub.toStdString();
    EXPECT_TRUE(QFileInfo(dir + u"/pic/panelB.jpg"_s).isFile());
    EXPECT_TRUE(QFileInfo(dir + u"/kestrava.lock"_s).isFile());

    QElapsedTimer timer;
    timer.start();
    ::kill(pid_t(p.process.processId()), SIGTERM);
    ASSERT_TRUE(p.finish(5000));
    EXPECT_LT(timer.elapsed(), 1000);
    EXPECT_EQ(p.process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(p.process.exitCode(), 0);
    EXPECT_TRUE(p.log().contains(u"closing"_s));
}

TEST(Program, SecondInstanceOnTheSameFolderEndsAtOnceAndSilently) {
    QTemporaryDir tmp;
    const QString dir = tmp.path() + u"/home"_s;
    Program first(home(dir));
    ASSERT_TRUE(first.waitForLog(u"started on"_s));

    QElapsedTimer timer;
    timer.start();
    Program second(home(dir));
    ASSERT_TRUE(second.finish(5000));
    EXPECT_LT(timer.elapsed(), 2000);
    EXPECT_EQ(second.process.exitCode(), 0);
    EXPECT_TRUE(second.log().isEmpty()) << second.log().toStdString();

    ::kill(pid_t(first.process.processId()), SIGINT);
    ASSERT_TRUE(first.finish());
    EXPECT_EQ(first.process.exitCode(), 0);
}

TEST(Program, FolderThatCannotBeCreatedIsOneErrorLineAndStatus1) {
    QTemporaryDir tmp;
    QFile blocker(tmp.path() + u"/file"_s);
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    Program p(home(tmp.path() + u"/file/home"_s));
    ASSERT_TRUE(p.finish());
    EXPECT_EQ(p.process.exitCode(), 1);
    QStringList lines = p.log().split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 1) << p.log().toStdString();
    EXPECT_TRUE(lines[0].startsWith(u"kestrava: error: cannot create program folder"_s));
}

TEST(Program, DemoFolderIsPreparedOnceWithTheSimulator) {
    QTemporaryDir tmp;
    const QString dir = tmp.path() + u"/demo"_s;
    {
        Program p({u"--headless"_s, u"--demo"_s, dir});
        ASSERT_TRUE(p.waitForLog(u"started on "_s + dir)) << p.log().toStdString();
        ::kill(pid_t(p.process.processId()), SIGTERM);
        ASSERT_TRUE(p.finish());
    }
    SettingsStore settings(dir + u"/setting.ini"_s);
    EXPECT_EQ(settings.ReadIni(u"Tira", u"Device"), u"sim"_s);
    EXPECT_FALSE(settings.ReadIni(u"WebServer", u"Port").isEmpty());

    // An existing demo folder keeps the owner's changes.
    settings.WriteIni(u"Tira", u"Device", u"/dev/lirc0");
    Program again({u"--headless"_s, u"--demo"_s, dir});
    ASSERT_TRUE(again.waitForLog(u"started on"_s));
    EXPECT_EQ(settings.ReadIni(u"Tira", u"Device"), u"/dev/lirc0"_s);
}

TEST(Program, SigtermClosesTheDesktopEvenWithABoxOpen) {
    QTemporaryDir tmp;
    auto env = QProcessEnvironment::systemEnvironment();
    env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    // A new folder greets with a modal box that nobody answers.
    Program p({u"--home"_s, tmp.path(), u"--verbose"_s}, env, Program::KeepPlatform);
    ASSERT_TRUE(p.waitForLog(u"desktop"_s)) << p.log().toStdString();
    QElapsedTimer timer;
    timer.start();
    ::kill(pid_t(p.process.processId()), SIGTERM);
    ASSERT_TRUE(p.finish(5000));
    EXPECT_LT(timer.elapsed(), 1000);
    EXPECT_EQ(p.process.exitCode(), 0);
}

TEST(Program, PressesFromManyPhonesAtOnceAllGoOutInOrder) {
    QTemporaryDir tmp;
    const QString dir = tmp.path() + u"/home"_s;
    quint16 port = 0;
    {
        QTcpServer probe;
        ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
        port = probe.serverPort();
    }
    ASSERT_TRUE(QDir().mkpath(dir + u"/IRSignals"_s));
    {
        SettingsStore settings(dir + u"/setting.ini"_s);
        settings.WriteIni(u"Tira", u"Device", u"sim");
        settings.WriteIni(u"WebServer", u"Port", QString::number(port));
        settings.WriteIni(u"Options", u"Internet", u"0");
        settings.WriteIni(u"Remote-1", u"Device", u"TV");
        settings.WriteIni(u"Remote-1", u"Design", u"4");
        for (int k = 0; k < 10; ++k) {
            const QString name = u"F"_s + QString::number(k);
            settings.WriteIni(u"Remote-1", u"Button-"_s + QString::number(k), name);
            ASSERT_TRUE(WriteSignalFile(dir + u"/IRSignals/TV-"_s + name + u".bin"_s,
                                        SimDriver::NecSignal(0x40, uint8_t(k))));
        }
    }
    Program p(home(dir));
    const quint16 listening = p.webPort();
    ASSERT_NE(listening, 0) << p.log().toStdString();

    // Ten phones press within a few milliseconds; each send lasts longer.
    std::vector<std::unique_ptr<RawConnection>> phones;
    for (int k = 0; k < 10; ++k) {
        phones.push_back(std::make_unique<RawConnection>(listening));
        phones.back()->send("GET /cremote.asp?DevID=1&Button=" + QByteArray::number(k) +
                            "&Device=TV HTTP/1.1\r\nHost: x\r\n\r\n");
        WaitMs(5);
    }
    for (auto& phone : phones) {
        const QByteArray page = phone->readAll(10000);
        EXPECT_TRUE(page.startsWith("HTTP/1.1 200")) << page.left(200).toStdString();
        EXPECT_TRUE(page.contains("cremote.asp?&Dummy=")) << "a failure page"; // the key list
    }
    QFile log(dir + u"/sim-transmit.log"_s);
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = log.readAll().trimmed().split('\n');
    ASSERT_EQ(lines.size(), 10);
    for (int k = 0; k < 10; ++k) // "<time> <count> <hex bytes>"
        EXPECT_EQ(QByteArray::fromHex(lines[k].mid(lines[k].indexOf(' ', 24) + 1)),
                  SimDriver::NecSignal(0x40, uint8_t(k)))
            << k;
}
