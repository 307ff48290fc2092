#include "reachability/PortMapping.h"

#include "core/Wait.h"
#include "support/FixedClock.h"
#include "support/HttpStandIn.h"
#include "support/ProgramProcess.h"
#include "support/SmtpPeer.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTimer>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// A home router in network namespaces: miniupnpd in "gw" between "lan" (192.168.77.2, this
// thread) and "wan" (11.0.0.1); its outside address 11.0.0.2 must not be a private one.
class Router {
public:
    // A rule given comes before Debian's example rules (ports 1024 and up only).
    explicit Router(bool withChains, const QByteArray& rule = {})
        : name(u"kvt"_s + QString::number(getpid())) {
        QString script = uR"(set -e
S=%1
for n in gw lan wan; do ip netns add $S$n; ip -n $S$n link set lo up; done
ip link add lan0 netns ${S}gw type veth peer name eth0 netns ${S}lan
ip link add wan0 netns ${S}gw type veth peer name eth0 netns ${S}wan
up() { ip -n $S$1 addr add $3 dev $2; ip -n $S$1 link set $2 up; }
up gw lan0 192.168.77.1/24; up gw wan0 11.0.0.2/24; up lan eth0 192.168.77.2/24; up wan eth0 11.0.0.1/24
ip -n ${S}lan route add default via 192.168.77.1
ip netns exec ${S}gw sysctl -qw net.ipv4.ip_forward=1
)"_s.arg(name);
        if (withChains)
            script += uR"(ip netns exec ${S}gw nft -f - <<NFT
table inet filter {
  chain forward { type filter hook forward priority 0; policy accept; jump miniupnpd; }
  chain miniupnpd { }
  chain prerouting { type nat hook prerouting priority -100; policy accept; jump prerouting_miniupnpd; }
  chain postrouting { type nat hook postrouting priority 100; policy accept; jump postrouting_miniupnpd; }
  chain prerouting_miniupnpd { }
  chain postrouting_miniupnpd { }
}
NFT
)"_s;
        if (QStandardPaths::findExecutable(u"miniupnpd"_s, {u"/usr/sbin"_s}).isEmpty()) {
            problem = u"miniupnpd is not installed"_s;
            return;
        }
        QProcess setup;
        setup.start(u"bash"_s, {u"-c"_s, script});
        setup.waitForFinished(20000);
        made = true;
        if (setup.exitCode() != 0) {
            problem = u"network namespaces cannot be made here: "_s +
                      QString::fromLocal8Bit(setup.readAllStandardError()).trimmed();
            return;
        }
        QFile conf(dir.filePath(u"miniupnpd.conf"_s));
        conf.open(QIODevice::WriteOnly);
        conf.write("ext_ifname=wan0\nlistening_ip=lan0\nport=5000\nenable_natpmp=no\n"
                   "secure_mode=yes\n"
                   "uuid=3d3cec3a-8cf0-11e0-98ee-001a6bd2d07b\n" +
                   rule +
                   "allow 1024-65535 192.168.77.0/24 1024-65535\ndeny 0-65535 0.0.0.0/0 0-65535\n");
        conf.close();
        daemon.setProcessChannelMode(QProcess::MergedChannels);
        daemon.start(u"ip"_s, {u"netns"_s, u"exec"_s, name + u"gw"_s, u"/usr/sbin/miniupnpd"_s,
                               u"-d"_s, u"-f"_s, conf.fileName(), u"-P"_s, dir.filePath(u"pid"_s)});
        QByteArray said;
        QObject::connect(&daemon, &QProcess::readyRead, [&] { said += daemon.readAll(); });
        for (int i = 0; i < 50 && !said.contains("HTTP listening"); ++i)
            WaitForSignal(&daemon, &QProcess::readyRead, 100);
        QObject::disconnect(&daemon, &QProcess::readyRead, nullptr, nullptr);
        if (!said.contains("HTTP listening")) {
            problem = u"miniupnpd did not start: "_s + QString::fromLocal8Bit(said);
            return;
        }
        // From here on this thread, and every thread it starts, is on the LAN.
        home = open("/proc/self/ns/net", O_RDONLY);
        const int lan = open(("/run/netns/" + name.toUtf8() + "lan").constData(), O_RDONLY);
        if (home < 0 || lan < 0 || setns(lan, CLONE_NEWNET) != 0)
            problem = u"cannot enter the LAN namespace"_s;
        if (lan >= 0)
            close(lan);
    }

    ~Router() {
        if (home >= 0) {
            setns(home, CLONE_NEWNET);
            close(home);
        }
        daemon.kill();
        daemon.waitForFinished(3000);
        if (made)
            QProcess::execute(
                u"bash"_s,
                {u"-c"_s,
                 u"for n in gw lan wan; do ip netns del %1$n; done 2>/dev/null"_s.arg(name)});
    }

    // The text a WAN host reads from 11.0.0.2:port, or "" when nothing answers.
    QByteArray readFromWan(int port) {
        QProcess client;
        client.start(
            u"ip"_s,
            {u"netns"_s, u"exec"_s, name + u"wan"_s, u"bash"_s, u"-c"_s,
             u"exec 3<>/dev/tcp/11.0.0.2/%1 && printf 'GET / HTTP/1.0\\r\\n\\r\\n' >&3 && timeout 3 head -c 5 <&3"_s
                 .arg(port)});
        WaitForSignal(&client, &QProcess::finished, 8000);
        return client.readAllStandardOutput();
    }

    const QString name;
    QString problem;
    QTemporaryDir dir;
    QProcess daemon;
    int home = -1;
    bool made = false;
};

QString Ask(std::function<void(PortMapping::Done)> call) {
    std::optional<QString> answer;
    call([&](const QString& r) { answer = r; });
    return WaitUntil([&] { return answer.has_value(); }, 15000) ? *answer : u"(no answer)"_s;
}

struct Mapper {
    explicit Mapper(const QString& port) {
        t.settings.WriteIni(u"Options", u"UPnPDescURL", u"http://192.168.77.1:5000/rootDesc.xml");
        t.settings.WriteIni(u"WebServer", u"Port", port);
        mapping.setIntervalsMs(20, 20);
    }
    TempFolder t;
    FixedClock clock{QDateTime(QDate(2026, 11, 23), QTime(10, 0, 30))};
    PortMapping mapping{t.settings, clock};
};

} // namespace

TEST(PortMapping, MapsTheWebPortThroughTheRouterAndKeepsItThere) {
    Router router(true, "allow 80 192.168.77.0/24 1024-65535\n");
    if (!router.problem.isEmpty())
        GTEST_SKIP() << router.problem.toStdString();
    Mapper m(u"18080"_s);
    HttpStandIn web; // the web port behind the router
    web.answer = "hello";
    web.server.close();
    ASSERT_TRUE(web.server.listen(QHostAddress::AnyIPv4, 18080));

    // The CA's HTTP check comes to port 80, forwarded while open.
    EXPECT_EQ(Ask([&](auto d) { m.mapping.MapChallengePort(true, d); }), u"Success"_s);
    EXPECT_EQ(Ask([&](auto d) { m.mapping.ListMapping(d); }),
              u"Description:Kestrava certificate check ExternalPort:80 Protocol:TCP "
              u"InternalPort:18080 InternalClient:192.168.77.2\r\n"_s);
    EXPECT_EQ(router.readFromWan(80), "hello");
    EXPECT_EQ(Ask([&](auto d) { m.mapping.MapChallengePort(false, d); }), u"Success"_s);
    EXPECT_EQ(Ask([&](auto d) { m.mapping.ListMapping(d); }), u""_s);

    m.mapping.Start();
    ASSERT_TRUE(WaitUntil([&] { return m.mapping.MappingDone; }));
    EXPECT_FALSE(m.mapping.Trying());
    const QString line = u"Description:Kestrava ExternalPort:18080 Protocol:TCP "
                         u"InternalPort:18080 InternalClient:192.168.77.2\r\n"_s;
    EXPECT_EQ(Ask([&](auto d) { m.mapping.ListMapping(d); }), line);
    EXPECT_EQ(router.readFromWan(18080), "hello");

    // A router that forgot the mapping gets it back at the sixth minute boundary.
    EXPECT_EQ(Ask([&](auto d) { m.mapping.UPnPRemoveMapping(u"18080"_s, u"TCP"_s, d); }),
              u"Success"_s);
    EXPECT_EQ(Ask([&](auto d) { m.mapping.ListMapping(d); }), u""_s);
    m.clock.at = m.clock.at.addSecs(5 * 60 - 1); // 10:05:29, five boundaries
    WaitMs(200);
    EXPECT_EQ(Ask([&](auto d) { m.mapping.ListMapping(d); }), u""_s);
    m.clock.at = m.clock.at.addSecs(31); // 10:06:00
    ASSERT_TRUE(WaitUntil([&] { return m.mapping.MappingTime == m.clock.at; }));
    EXPECT_EQ(Ask([&](auto d) { m.mapping.ListMapping(d); }), line);

    // Another mapping naming "VNC" holds the rewrite off.
    EXPECT_EQ(Ask([&](auto d) {
                  m.mapping.UPnPAddMapping(u"15900"_s, u"192.168.77.2"_s, u"TCP"_s, u"VNC"_s, d);
              }),
              u"Success"_s);
    Ask([&](auto d) { m.mapping.UPnPRemoveMapping(u"18080"_s, u"TCP"_s, d); });
    m.clock.at = m.clock.at.addSecs(6 * 60);
    ASSERT_TRUE(WaitUntil([&] { return m.mapping.MappingTime == m.clock.at; }));
    EXPECT_FALSE(Ask([&](auto d) { m.mapping.ListMapping(d); }).contains(u"Kestrava"_s));

    EXPECT_EQ(Ask([&](auto d) { m.mapping.DeleteMappingPort(u"18080"_s, u"TCP"_s, d); }),
              u"Success"_s);
    EXPECT_FALSE(m.mapping.MappingDone || m.mapping.Trying() || m.mapping.KeepingAlive());
    EXPECT_EQ(Ask([&](auto d) { m.mapping.ListMapping(d); }),
              u"Description:VNC ExternalPort:15900 Protocol:TCP InternalPort:15900 "
              u"InternalClient:192.168.77.2\r\n"_s);
}

TEST(PortMapping, FailuresLeaveTheMappingUndoneAndTheLoopRunning) {
    Router router(false); // no nft chains: the router answers error 501
    if (!router.problem.isEmpty())
        GTEST_SKIP() << router.problem.toStdString();
    Mapper m(u"18080"_s);
    int ticks = 0;
    bool offDuringAttempt = false;
    QObject::connect(&m.mapping, &PortMapping::tryStarted, [&] {
        ++ticks;
        offDuringAttempt = !m.mapping.Trying();
        m.mapping.setIntervalsMs(60000, 20);
    });
    m.mapping.Start();
    ASSERT_TRUE(WaitUntil([&] { return ticks == 1 && m.mapping.Trying(); }));
    EXPECT_TRUE(offDuringAttempt);
    EXPECT_FALSE(m.mapping.MappingDone || m.mapping.KeepingAlive());

    for (const QString& port : {u"abc"_s, u"99999"_s})
        EXPECT_EQ(Ask([&](auto d) {
                      m.mapping.UPnPAddMapping(port, u"192.168.77.2"_s, u"TCP"_s, u"K"_s, d);
                  }),
                  u"Failed"_s);
    EXPECT_EQ(Ask([&](auto d) { m.mapping.MapChallengePort(true, d); }), u"Failed"_s);
    EXPECT_EQ(Ask([&](auto d) { m.mapping.MapChallengePort(false, d); }), u"Success"_s);

    // A removal that fails still forgets the mapping and stops both timers.
    m.mapping.MappingDone = true;
    m.mapping.Start();
    EXPECT_EQ(Ask([&](auto d) { m.mapping.DeleteMappingPort(u"abc"_s, u"TCP"_s, d); }),
              u"Failed"_s);
    EXPECT_FALSE(m.mapping.MappingDone || m.mapping.Trying() || m.mapping.KeepingAlive());

    // A router that accepts and never answers: the loop keeps running meanwhile.
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    m.t.settings.WriteIni(u"Options", u"UPnPDescURL",
                          u"http://127.0.0.1:%1/rootDesc.xml"_s.arg(silent.serverPort()));
    bool answered = false, ticked = false;
    m.mapping.UPnPListMappings([&](const QString& r) {
        answered = true;
        EXPECT_EQ(r, u"Failed"_s);
    });
    QTimer::singleShot(50, [&] { ticked = !answered; });
    EXPECT_TRUE(WaitUntil([&] { return answered; }, 15000));
    EXPECT_TRUE(ticked);
}

// The program maps, mails and updates within 15 s, unmaps at its end, and logs no password.
TEST(PortMapping, TheProgramMapsMailsAndUpdatesAfterTenSecondsAndRemovesTheMappingAtTheEnd) {
    Router router(true);
    if (!router.problem.isEmpty())
        GTEST_SKIP() << router.problem.toStdString();
    Mapper m(u"18081"_s);
    // Made after the router, so they listen on the LAN side's own 127.0.0.1.
    HttpStandIn lookup, dyndns;
    lookup.answer = HttpStandIn::Response("200 OK", "Current IP Address: 11.0.0.2");
    dyndns.answer = HttpStandIn::Response("200 OK", "good 11.0.0.2");
    SmtpPeer smtp(m.t, u"open"_s);
    if (!smtp.ready)
        GTEST_SKIP() << "python3-aiosmtpd is not usable";
    WriteInternetOptions(m.t.settings, lookup, dyndns);
    for (const auto& [key, value] : {std::pair{u"NotifyMail"_s, u"1"_s},
                                     {u"SMTPServer"_s, u"127.0.0.1:%1"_s.arg(smtp.port)},
                                     {u"POPServer"_s, u"127.0.0.1:1"_s},
                                     {u"MailAuth"_s, u"0"_s},
                                     {u"NotifyTo"_s, u"owner@example.net"_s},
                                     {u"MailFrom"_s, u"kestrava@example.org"_s}})
        m.t.settings.WriteIni(u"Options", key, value);
    QElapsedTimer sinceStart;
    sinceStart.start();
    ProgramProcess p({u"--headless"_s, u"--verbose"_s, u"--home"_s, m.t.root()});
    ASSERT_EQ(p.webPort(), 18081) << p.log().toStdString();
    auto list = [&] { return Ask([&](auto d) { m.mapping.UPnPListMappings(d); }); };
    EXPECT_EQ(list(), u""_s);
    auto dnsLog = [&] { return m.t.readFile(u"DynDns.log"); };
    bool mapped = false;
    EXPECT_TRUE(WaitUntil(
        [&] {
            mapped = mapped || list().contains(u"ExternalPort:18081"_s);
            return mapped && !smtp.received().empty() && !dnsLog().isEmpty();
        },
        15000 - int(sinceStart.elapsed())))
        << p.log().toStdString();
    EXPECT_TRUE(mapped);
    EXPECT_EQ(router.readFromWan(18081), "HTTP/");
    EXPECT_EQ(smtp.received().size(), 1u);
    ASSERT_EQ(dyndns.requests.size(), 1);
    EXPECT_TRUE(
        dyndns.requests[0].contains("/nic/update?hostname=home.example.org&myip=11.0.0.2 "));
    EXPECT_TRUE(dyndns.requests[0].contains("Authorization: Basic " +
                                            QByteArray("me:Pa55word").toBase64() + "\r\n"));
    EXPECT_TRUE(dnsLog().endsWith("\tgood 11.0.0.2\r\n"));
    EXPECT_FALSE(p.log().contains(u"Pa55word"_s));
    ASSERT_TRUE(p.stop());
    EXPECT_EQ(list(), u""_s);
    EXPECT_EQ(m.t.settings.ReadIni(u"DynDns", u"LastIP"), u"11.0.0.2"_s);
}
