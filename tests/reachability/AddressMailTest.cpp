#include "reachability/AddressMail.h"

#include "core/Password.h"
#include "core/UserPrompt.h"
#include "core/Wait.h"
#include "support/Certificate.h"
#include "support/FixedClock.h"
#include "support/LogLines.h"
#include "support/ScriptedPrompt.h"
#include "support/SmtpPeer.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QLoggingCategory>
#include <QTcpSocket>
#include <gtest/gtest.h>

#include <array>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Sends and lets events run until the answer; nullopt when none came in time.
std::optional<bool> sendAndWait(AddressMail& mail, const QString& address, int timeoutMs) {
    std::optional<bool> result;
    mail.Send(address, [&](bool sent) { result = sent; });
    WaitUntil([&] { return result.has_value(); }, timeoutMs);
    return result;
}

void setMailSettings(SettingsStore& s, quint16 smtpPort, const QString& password) {
    s.WriteIni(u"Options", u"SMTPServer", u"127.0.0.1:%1"_s.arg(smtpPort));
    s.WriteIni(u"Options", u"NotifyTo", u"owner@example.net");
    s.WriteIni(u"Options", u"MailFrom", u"kestrava@example.org");
    s.WriteIni(u"Options", u"MailAuth", u"1");
    s.WriteIni(u"Options", u"UserID", u"kestrava");
    s.WriteIni(u"Options", u"Password", ScramblePassword(u"SET", password));
}

} // namespace

TEST(AddressMail, SmtpAuthDeliversTheMessageAndRefusalsAreShown) {
    TempFolder temp;
    SmtpPeer smtp(temp, u"auth"_s);
    if (!smtp.ready)
        GTEST_SKIP() << "python3-aiosmtpd is not usable";
    ScriptedPrompt prompt;
    FixedClock clock(QDateTime(QDate(2026, 11, 21), QTime(8, 5, 59)));
    AddressMail mail(temp.settings);
    mail.setPrompt(&prompt);
    mail.setClock(&clock);
    setMailSettings(temp.settings, smtp.port, u"pa:ss"_s);
    temp.settings.WriteIni(u"Options", u"AuthMethod", u"SMTPAuth");

    EXPECT_EQ(sendAndWait(mail, u"203.0.113.7"_s, 10000), true);
    auto received = smtp.received();
    ASSERT_EQ(received.size(), 1u);
    const QJsonObject& m = received[0];
    EXPECT_EQ(m[u"from"].toString(), u"kestrava@example.org");
    EXPECT_EQ(m[u"to"].toArray(), QJsonArray{u"owner@example.net"_s});
    EXPECT_EQ(m[u"login"].toString(), u"kestrava");
    EXPECT_EQ(m[u"subject"].toString(), u"Kestrava - IPアドレス通知"_s);
    EXPECT_EQ(m[u"charset"].toString(), u"utf-8");
    EXPECT_EQ(
        QByteArray::fromBase64(m[u"body"].toString().toLatin1()),
        QStringLiteral("\r\n通知日時:2026/11/21 08:05\r\n\r\nIPアドレスが変化しました。\r\n\r\n"
                       "現在のIPアドレス： 203.0.113.7")
            .toUtf8());
    EXPECT_TRUE(m[u"date"].toString().startsWith(u"2026-11-21 08:05"));
    EXPECT_TRUE(m[u"messageId"].toString().endsWith(u"@example.org>"));
    EXPECT_TRUE(prompt.shown.isEmpty());

    // Wrong password, no usable method, no authentication: refused, shown, never the password.
    for (const auto& [mailAuth, method, password] :
         {std::array<QStringView, 3>{u"1", u"", u"pa:ss"},
          {u"0", u"SMTPAuth", u"pa:ss"},
          {u"1", u"SMTPAuth", u"wrong"}}) {
        SCOPED_TRACE(mailAuth.toString().toStdString() + ' ' + method.toString().toStdString());
        prompt.shown.clear();
        temp.settings.WriteIni(u"Options", u"MailAuth", mailAuth);
        temp.settings.WriteIni(u"Options", u"AuthMethod", method);
        temp.settings.WriteIni(u"Options", u"Password", ScramblePassword(u"SET", password));
        EXPECT_EQ(sendAndWait(mail, u"203.0.113.8"_s, 10000), false);
        ASSERT_EQ(prompt.shown.size(), 1);
        EXPECT_TRUE(prompt.shown[0].startsWith(u"notify:"_s + AddressMail::ErrorText));
        EXPECT_FALSE(prompt.shown[0].contains(password));
    }

    // STARTTLS offered is taken; a certificate nobody vouches for ends it before the password.
    const TlsFiles cert = MakeCertificate(temp.dir.path(), u"smtp"_s, u"IP:127.0.0.1"_s);
    SmtpPeer tls(temp, u"tls"_s, {cert.cert, cert.key});
    ASSERT_TRUE(tls.ready);
    prompt.shown.clear();
    temp.settings.WriteIni(u"Options", u"SMTPServer", u"127.0.0.1:%1"_s.arg(tls.port));
    EXPECT_EQ(sendAndWait(mail, u"203.0.113.8"_s, 10000), false);
    ASSERT_EQ(prompt.shown.size(), 1);
    EXPECT_TRUE(prompt.shown[0].contains(u"certificate")) << prompt.shown[0].toStdString();
    EXPECT_EQ(smtp.received().size(), 1u); // both servers write here
}

TEST(AddressMail, PopBeforeSmtpLogsInFirstWhateverTheAnswer) {
    const QString dovecot = u"/usr/sbin/dovecot"_s;
    if (!QFile::exists(dovecot))
        GTEST_SKIP() << "dovecot-pop3d is not installed";
    TempFolder temp;
    SmtpPeer smtp(temp, u"open"_s);
    if (!smtp.ready)
        GTEST_SKIP() << "python3-aiosmtpd is not usable";

    // Started as root, dovecot's processes drop to its service users.
    QString base = temp.dir.filePath(u"pop"_s);
    QDir().mkpath(base + u"/home"_s);
    QFile::setPermissions(temp.dir.path(),
                          QFile::permissions(temp.dir.path()) | QFile::ExeOther | QFile::ReadOther);
    QFile::setPermissions(base + u"/home"_s, QFile::Permissions(0x7777));
    bool root = getuid() == 0;
    QString user = root ? QString() : QString::fromLocal8Bit(qgetenv("USER"));
    quint16 popPort = freePort();
    QString conf = QStringLiteral(R"(base_dir = %1/run
state_dir = %1/state
log_path = %1/dovecot.log
protocols = pop3
listen = 127.0.0.1
ssl = no
disable_plaintext_auth = no
auth_mechanisms = plain login
auth_failure_delay = 0
default_internal_user = %2
default_internal_group = %3
default_login_user = %4
mail_location = maildir:%1/home/%u/Maildir
passdb {
  driver = passwd-file
  args = scheme=PLAIN username_format=%u %1/passwd
}
userdb {
  driver = static
  args = uid=%5 gid=%6 home=%1/home/%u
}
service pop3-login {
  inet_listener pop3 {
    port = %7
  }
}
service anvil {
  unix_listener anvil-auth-penalty {
    mode = 0
  }
}
)")
                       .arg(base, root ? u"dovecot"_s : user, root ? u"dovecot"_s : user,
                            root ? u"dovenull"_s : user)
                       .arg(root ? 65534 : getuid())
                       .arg(root ? 65534 : getgid())
                       .arg(popPort);
    for (auto [name, bytes] : {std::pair{u"/passwd", QByteArray("kestrava:{PLAIN}secret::::::\n")},
                               std::pair{u"/dovecot.conf", conf.toUtf8()}}) {
        QFile f(base + QString::fromUtf16(name));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }
    QProcess pop;
    pop.start(dovecot, {u"-F"_s, u"-c"_s, base + u"/dovecot.conf"_s});
    ASSERT_TRUE(pop.waitForStarted());
    ASSERT_TRUE(WaitUntil([&] {
        QTcpSocket probe;
        probe.connectToHost(QHostAddress::LocalHost, popPort);
        return probe.waitForConnected(100);
    })) << "dovecot did not start";

    AddressMail mail(temp.settings);
    setMailSettings(temp.settings, smtp.port, u"secret"_s);
    temp.settings.WriteIni(u"Options", u"AuthMethod", u"POPBeforeSMTP");
    temp.settings.WriteIni(u"Options", u"POPServer", u"127.0.0.1:%1"_s.arg(popPort));

    // The log line is written by dovecot's log process, a moment after the reply.
    auto logHas = [&](const char* text) {
        return WaitUntil([&] { return temp.readFile(u"../pop/dovecot.log").contains(text); }, 2000);
    };
    // --verbose shows the exchange, with what carries the password masked.
    LogLines trace;
    QLoggingCategory::setFilterRules(u"kestrava.mail.debug=true"_s);
    EXPECT_EQ(sendAndWait(mail, u"203.0.113.9"_s, 10000), true);
    EXPECT_TRUE(logHas("Login: user=<kestrava>"));
    EXPECT_TRUE(trace.lines.contains(u"> STAT"_s));

    // A refused POP3 login is not the mail's failure.
    temp.settings.WriteIni(u"Options", u"Password", ScramblePassword(u"SET", u"wrong"));
    QElapsedTimer took;
    took.start();
    EXPECT_EQ(sendAndWait(mail, u"203.0.113.10"_s, 10000), true);
    EXPECT_LT(took.elapsed(), 3000);
    EXPECT_TRUE(logHas("auth failed"));
    EXPECT_TRUE(trace.lines.contains(u"> ****"_s));
    for (const QByteArray& login :
         {QByteArray("\0kestrava\0secret", 16), QByteArray("\0kestrava\0wrong", 15)})
        for (const QString& line : trace.lines)
            EXPECT_FALSE(line.contains(QString::fromLatin1(login.toBase64())))
                << line.toStdString();
    EXPECT_EQ(smtp.received().size(), 2u);
    pop.terminate();
    pop.waitForFinished(3000);
}

TEST(AddressMail, UnusableServersFailWhileEventsRun) {
    TempFolder temp;
    QTcpServer silent; // accepts and never says a word
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    setMailSettings(temp.settings, silent.serverPort(), u"pa:ss"_s);
    temp.settings.WriteIni(u"Options", u"AuthMethod", u"SMTPAuth");

    ScriptedPrompt prompt;
    int ticks = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] { ++ticks; });
    ticker.start(20);
    QElapsedTimer took;
    took.start();
    {
        AddressMail mail(temp.settings);
        mail.setPrompt(&prompt);
        mail.setTimeoutMs(1000);
        EXPECT_EQ(sendAndWait(mail, u"203.0.113.11"_s, 5000), false);
        EXPECT_GE(took.elapsed(), 900);
        EXPECT_LT(took.elapsed(), 3000);
        EXPECT_GE(ticks, 30);
        ASSERT_EQ(prompt.shown.size(), 1);
        EXPECT_TRUE(prompt.shown[0].startsWith(u"notify:"_s + AddressMail::ErrorText));

        // A server that hangs up, and server texts that name no port, fail at once.
        QTcpServer rude;
        ASSERT_TRUE(rude.listen(QHostAddress::LocalHost));
        QObject::connect(&rude, &QTcpServer::newConnection, [&] {
            while (QTcpSocket* s = rude.nextPendingConnection())
                s->close();
        });
        for (const QString& server :
             {u"127.0.0.1:%1"_s.arg(rude.serverPort()), u"127.0.0.1:abc"_s, u"127.0.0.1:99999"_s}) {
            temp.settings.WriteIni(u"Options", u"SMTPServer", server);
            EXPECT_EQ(sendAndWait(mail, u"203.0.113.12"_s, 900), false) << server.toStdString();
        }
        EXPECT_EQ(prompt.shown.size(), 4);

        // Headless, a failure is one line of the log.
        LogLines logged;
        HeadlessPrompt headless;
        mail.setPrompt(&headless);
        EXPECT_EQ(sendAndWait(mail, u"203.0.113.13"_s, 900), false);
        EXPECT_EQ(logged.lines.filter(AddressMail::ErrorText).size(), 1)
            << logged.text().toStdString();
        mail.setPrompt(&prompt);

        // Closing the program in the middle of a conversation does not wait for its time-out.
        temp.settings.WriteIni(u"Options", u"SMTPServer",
                               u"127.0.0.1:%1"_s.arg(silent.serverPort()));
        mail.setTimeoutMs(AddressMail::DefaultTimeoutMs);
        mail.Send(u"203.0.113.12"_s, [](bool) { ADD_FAILURE() << "answered"; });
        WaitMs(200);
        took.restart();
    }
    EXPECT_LT(took.elapsed(), 500);
    EXPECT_EQ(prompt.shown.size(), 4);
}
