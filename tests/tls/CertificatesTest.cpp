#include "tls/Certificates.h"

#include "app/Program.h"
#include "core/Wait.h"
#include "support/FixedClock.h"
#include "support/HttpClient.h"
#include "support/ScriptedPrompt.h"
#include "support/SmtpPeer.h" // freePort
#include "support/TempFolder.h"
#include "support/WaitUntil.h"
#include "webserver/Dispatcher.h"
#include "webserver/WebServer.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSslServer>
#include <QSslSocket>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <gtest/gtest.h>

#include <tuple>

using namespace Qt::StringLiterals;

namespace {

bool run(const QString& program, const QStringList& args) {
    QProcess p;
    p.setStandardErrorFile(QProcess::nullDevice());
    p.start(program, args);
    return p.waitForFinished(30000) && p.exitCode() == 0;
}

// A self-signed certificate and its key from the openssl tool.
bool makePair(const QString& cert, const QString& key, const QString& names, bool rsa = false) {
    return run(
        u"openssl"_s,
        u"req -x509 -nodes -days 30 -subj /CN=kestrava -newkey %1 -keyout %2 "
        u"-out %3 -addext subjectAltName=%4"_s
            .arg(rsa ? u"rsa:2048"_s : u"ec -pkeyopt ec_paramgen_curve:P-256"_s, key, cert, names)
            .split(u' '));
}

// The certificate a TLS client is shown by a server with this configuration.
QSslCertificate shown(const QSslConfiguration& config) {
    QSslServer server;
    server.setSslConfiguration(config);
    if (!server.listen(QHostAddress::LocalHost, 0))
        return QSslCertificate();
    QSslSocket client;
    client.setPeerVerifyMode(QSslSocket::VerifyNone);
    client.connectToHostEncrypted(u"127.0.0.1"_s, server.serverPort());
    WaitForSignal(&client, &QSslSocket::encrypted, 5000);
    return client.peerCertificate();
}

// Debian's pebble ACME server and its DNS on loopback, checking HTTP-01 on webPort.
class Pebble {
public:
    explicit Pebble(quint16 webPort) {
        for (const QString& tool : {u"pebble"_s, u"pebble-challtestsrv"_s, u"openssl"_s})
            if (QStandardPaths::findExecutable(tool).isEmpty()) {
                problem = tool + u" is not installed"_s;
                return;
            }
        caFile = dir.filePath(u"ca.pem"_s);
        if (!makePair(caFile, dir.filePath(u"ca.key"_s), u"DNS:localhost,IP:127.0.0.1"_s)) {
            problem = u"openssl cannot make the CA's certificate"_s;
            return;
        }
        QUdpSocket udp;
        udp.bind(QHostAddress::LocalHost, 0);
        dnsPort = udp.localPort();
        udp.close();
        managePort = freePort();
        dns.setProcessChannelMode(QProcess::MergedChannels);
        dns.start(u"pebble-challtestsrv"_s,
                  {u"-defaultIPv4"_s, u"127.0.0.1"_s, u"-defaultIPv6"_s, u""_s, u"-dns01"_s,
                   u"127.0.0.1:"_s + QString::number(dnsPort), u"-management"_s,
                   u"127.0.0.1:"_s + QString::number(managePort), u"-http01"_s, u""_s,
                   u"-https01"_s, u""_s, u"-tlsalpn01"_s, u""_s});
        const quint16 port = freePort();
        directory = u"https://127.0.0.1:%1/dir"_s.arg(port);
        QFile config(dir.filePath(u"pebble.json"_s));
        config.open(QIODevice::WriteOnly);
        config.write(
            u"{\"pebble\": {\"listenAddress\": \"127.0.0.1:%1\", "
            "\"managementListenAddress\": \"127.0.0.1:%2\", \"certificate\": \"%3\", "
            "\"privateKey\": \"%4\", \"httpPort\": %5, \"tlsPort\": %6, "
            "\"ocspResponderURL\": \"\", \"externalAccountBindingRequired\": false}}"_s.arg(port)
                .arg(freePort())
                .arg(caFile, dir.filePath(u"ca.key"_s))
                .arg(webPort)
                .arg(freePort())
                .toUtf8());
        config.close();
        auto env = QProcessEnvironment::systemEnvironment();
        env.insert(u"PEBBLE_VA_NOSLEEP"_s, u"1"_s);
        env.insert(u"PEBBLE_WFE_NONCEREJECT"_s, u"0"_s);
        env.insert(u"PEBBLE_AUTHZREUSE"_s, u"0"_s);
        ca.setProcessEnvironment(env);
        ca.setProcessChannelMode(QProcess::MergedChannels);
        ca.start(u"pebble"_s, {u"-config"_s, config.fileName(), u"-dnsserver"_s,
                               u"127.0.0.1:"_s + QString::number(dnsPort)});
        ca.waitForStarted();
        QByteArray said;
        QObject::connect(&ca, &QProcess::readyRead, [&] { said += ca.readAll(); });
        WaitUntil([&] { return said.contains("Listening on") || ca.state() != QProcess::Running; },
                  10000);
        QObject::disconnect(&ca, &QProcess::readyRead, nullptr, nullptr);
        if (!said.contains("Listening on"))
            problem = u"pebble did not start: "_s + QString::fromLocal8Bit(said);
    }
    ~Pebble() {
        for (QProcess* p : {&ca, &dns}) {
            p->kill();
            p->waitForFinished(3000);
        }
    }
    // challtestsrv answers SERVFAIL for this name.
    void failDns(const QString& host) {
        run(u"curl"_s, {u"-sf"_s, u"-d"_s, u"{\"host\":\"%1.\"}"_s.arg(host),
                        u"http://127.0.0.1:%1/set-servfail"_s.arg(managePort)});
    }

    QTemporaryDir dir;
    QString problem, caFile, directory;
    quint16 dnsPort = 0, managePort = 0;
    QProcess dns, ca;
};

// The web server with the challenge route and login, certificates set up for ACME with pebble.
struct AcmeSetup {
    explicit AcmeSetup(const QString& hosts = u"www.kestrava.test, kestrava.local, 192.168.1.2"_s) {
        clock.at = QDateTime::currentDateTimeUtc();
        t.settings.WriteIni(u"WebServer", u"Port", u"0");
        for (auto [key, value] :
             {std::pair{u"WebAuth", u"1"}, {u"Web_User", u"u"}, {u"Web_Pass", u"secret"}})
            t.settings.WriteIni(u"Options", key, value);
        server.portFallback = [](const QList<quint16>&) { return quint16(0); };
        server.AddFront(AcmeChallengeRoute(certificates));
        server.InitWebServer();
        pebble = std::make_unique<Pebble>(server.WebPort());
        t.settings.Write(Key::HttpsPort, u"8443");
        t.settings.Write(Key::DnsHost, u"kestrava.test");
        t.settings.Write(Key::WebHosts, hosts);
        t.settings.Write(Key::AcmeDirectory, pebble->directory);
        t.settings.Write(Key::AcmeCAFile, pebble->caFile);
        t.settings.Write(Key::AcmeEmail, u"owner@kestrava.test");
        certificates.setTimings(50, 300, 1200);
        certificates.acmeClient().setPoll(50, 200);
    }
    TempFolder t;
    FixedClock clock;
    ScriptedPrompt prompt;
    Dispatcher dispatcher;
    WebServer server{t.folder, t.settings, clock, prompt, dispatcher};
    Certificates certificates{t.folder, t.settings, clock};
    std::unique_ptr<Pebble> pebble;
};

} // namespace

TEST(Certificates, AcmeIssuesRenewsAndKeepsServingWhileTheCaIsDown) {
    AcmeSetup s;
    if (!s.pebble->problem.isEmpty())
        GTEST_SKIP() << s.pebble->problem.toStdString();
    QList<bool> challengeOpen;
    QObject::connect(&s.certificates, &Certificates::challengeOpenChanged,
                     [&](bool open) { challengeOpen << open; });

    s.certificates.Start();
    ASSERT_TRUE(WaitForSignal(&s.certificates, &Certificates::Changed, 30000))
        << s.certificates.Info().problem.toStdString();
    const CertificateInfo first = s.certificates.Info();
    // Names a public CA cannot check are left out of the order.
    EXPECT_EQ(first.names, (QStringList{u"kestrava.test"_s, u"www.kestrava.test"_s}));
    EXPECT_TRUE(first.problem.isEmpty());
    EXPECT_GT(first.expires, s.clock.at.addDays(1));
    EXPECT_EQ(challengeOpen, (QList<bool>{true, false}));
    const QSslCertificate served = shown(s.certificates.ServerConfiguration());
    EXPECT_EQ(served.expiryDate(), first.expires);
    // The keys stay private, and the challenge path answers nothing once closed.
    const auto onlyOurs = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser;
    EXPECT_EQ(QFile::permissions(s.t.path(Certificates::CertificateFile)), onlyOurs);
    EXPECT_EQ(QFile::permissions(s.t.path(Certificates::AccountKeyFile)), onlyOurs);
    EXPECT_TRUE(Fetch(s.server.WebPort(), "GET /.well-known/acme-challenge/x HTTP/1.1\r\n\r\n")
                    .startsWith("HTTP/1.1 404"));

    // A third of its life left: a new one, with the account kept.
    const QDateTime start = served.effectiveDate();
    s.clock.at = start.addSecs(start.secsTo(first.expires) * 7 / 10);
    s.certificates.CheckRenewal();
    ASSERT_TRUE(WaitForSignal(&s.certificates, &Certificates::Changed, 30000))
        << s.certificates.Info().problem.toStdString();
    const QSslCertificate renewed = shown(s.certificates.ServerConfiguration());
    EXPECT_NE(renewed.serialNumber(), served.serialNumber());

    // The CA gone: tries again later, further apart, the certificate serving.
    s.pebble->ca.kill();
    s.pebble->ca.waitForFinished();
    s.clock.at = s.clock.at.addYears(10);
    s.certificates.CheckRenewal();
    ASSERT_TRUE(WaitUntil([&] { return !s.certificates.Info().problem.isEmpty(); }, 10000));
    EXPECT_TRUE(s.certificates.Info().problem.contains(u"cannot be reached"_s))
        << s.certificates.Info().problem.toStdString();
    EXPECT_EQ(s.certificates.RetryMs(), 300);
    EXPECT_TRUE(WaitUntil([&] { return s.certificates.RetryMs() == 1200; }, 10000));
    EXPECT_EQ(shown(s.certificates.ServerConfiguration()), renewed);
    EXPECT_EQ(s.certificates.Info().expires, renewed.expiryDate());

    // The next start serves the kept certificate before asking anyone.
    Certificates again{s.t.folder, s.t.settings, s.clock};
    s.clock.at = start;
    again.Start();
    EXPECT_EQ(shown(again.ServerConfiguration()), renewed);
}

TEST(Certificates, ACheckTheCaCannotMakeEndsWithItsReason) {
    AcmeSetup s(u"down.kestrava.test"_s);
    if (!s.pebble->problem.isEmpty())
        GTEST_SKIP() << s.pebble->problem.toStdString();
    s.pebble->failDns(u"down.kestrava.test"_s);
    s.certificates.Start();
    ASSERT_TRUE(WaitUntil([&] { return !s.certificates.Info().problem.isEmpty(); }, 30000));
    const QString problem = s.certificates.Info().problem;
    EXPECT_TRUE(problem.startsWith(u"down.kestrava.test: "_s)) << problem.toStdString();
    // pebble's own words, and the kind of problem.
    EXPECT_TRUE(problem.contains(u"could not resolve"_s)) << problem.toStdString();
    EXPECT_TRUE(problem.endsWith(u"(connection)"_s)) << problem.toStdString();
    EXPECT_TRUE(s.certificates.ServerConfiguration().isNull());
    EXPECT_FALSE(s.certificates.ChallengeOpen());
}

TEST(Certificates, FilesAreReloadedWhenReplacedAndABrokenReplacementKeepsTheOld) {
    TempFolder t;
    FixedClock clock{QDateTime::currentDateTimeUtc()};
    // As certbot keeps them: links in live/ to numbered files in archive/.
    const QString archive = t.path(u"archive"_s), live = t.path(u"live"_s);
    QDir().mkpath(archive);
    QDir().mkpath(live);
    ASSERT_TRUE(makePair(archive + u"/cert1.pem"_s, archive + u"/key1.pem"_s, u"DNS:a.test"_s));
    ASSERT_TRUE(makePair(archive + u"/cert2.pem"_s, archive + u"/key2.pem"_s,
                         u"DNS:b.test,DNS:c.test"_s, true));
    const auto point = [&](const QString& link, const QString& target) {
        QFile::link(archive + u'/' + target, live + u"/new"_s);
        return ::rename((live + u"/new"_s).toLocal8Bit(), (live + u'/' + link).toLocal8Bit()) == 0;
    };
    ASSERT_TRUE(point(u"fullchain.pem"_s, u"cert1.pem"_s) &&
                point(u"privkey.pem"_s, u"key1.pem"_s));
    t.settings.Write(Key::CertFile, live + u"/fullchain.pem"_s);
    t.settings.Write(Key::KeyFile, live + u"/privkey.pem"_s);
    Certificates certificates(t.folder, t.settings, clock);
    certificates.setTimings(50, 1000, 1000);
    certificates.Start();
    EXPECT_EQ(certificates.Info().names, QStringList{u"a.test"_s});
    EXPECT_EQ(shown(certificates.ServerConfiguration()).subjectAlternativeNames().values(),
              QStringList{u"a.test"_s});

    ASSERT_TRUE(point(u"fullchain.pem"_s, u"cert2.pem"_s) &&
                point(u"privkey.pem"_s, u"key2.pem"_s));
    ASSERT_TRUE(WaitForSignal(&certificates, &Certificates::Changed, 5000));
    EXPECT_EQ(certificates.Info().names, (QStringList{u"b.test"_s, u"c.test"_s}));
    const QSslCertificate second = shown(certificates.ServerConfiguration());
    EXPECT_EQ(second.subjectAlternativeNames().values().size(), 2);

    // A key of another certificate, then no certificate at all: the old one stays.
    for (const auto& [link, target, why] :
         {std::tuple{u"privkey.pem"_s, u"key1.pem"_s, u"does not belong"_s},
          std::tuple{u"fullchain.pem"_s, u"key2.pem"_s, u"no certificate"_s}}) {
        ASSERT_TRUE(point(link, target));
        EXPECT_FALSE(WaitForSignal(&certificates, &Certificates::Changed, 500));
        EXPECT_TRUE(certificates.Info().problem.contains(why))
            << certificates.Info().problem.toStdString();
        EXPECT_EQ(shown(certificates.ServerConfiguration()), second);
    }
}
