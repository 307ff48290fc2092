#include "webserver/WebServer.h"
#include "core/NetAddress.h"
#include "core/Password.h"
#include "core/ShiftJis.h"
#include "phone/PhoneFiles.h"
#include "support/Certificate.h"
#include "support/FixedClock.h"
#include "support/HttpClient.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"
#include "webserver/Dispatcher.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QSysInfo>
#include <QTcpServer>
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// A server on a free port over a temporary folder; its pages record what reached them.
class Served {
public:
    // Port 0 is not one to store: the fallback gives fallbackPort (0: any).
    explicit Served(const std::function<void(SettingsStore&)>& configure = {},
                    quint16 fallbackPort = 0) {
        clock.at = QDateTime(QDate(2026, 11, 21), QTime(8, 0), Qt::UTC);
        t.settings.WriteIni(u"WebServer", u"Port", u"0");
        // The names the tests' requests use are the server's own.
        t.settings.WriteIni(u"WebServer", u"Hosts", u"a,h");
        server.portFallback = [fallbackPort](const QList<quint16>&) { return fallbackPort; };
        if (configure)
            configure(t.settings);
        for (const QString& name : Dispatcher::PageNames())
            dispatcher.SetGenerator(name, [this, name](const PageRequest& r) {
                calls << name;
                last = r;
                return u"page:"_s + name;
            });
        server.setRedirectMs(150);
        server.setTimeouts(300, 300, 200);
        server.InitWebServer();
    }

    quint16 port() const { return server.WebPort(); }
    QByteArray get(const QByteArray& path, const QByteArray& extra = "Host: a:8080\r\n") {
        return Fetch(port(), "GET " + path + " HTTP/1.1\r\n" + extra + "\r\n");
    }

    TempFolder t;
    FixedClock clock;
    ScriptedPrompt prompt;
    Dispatcher dispatcher;
    WebServer server{t.folder, t.settings, clock, prompt, dispatcher};
    QStringList calls;
    PageRequest last;
};

const QByteArray DateLine = "Date: Sat, 21 Nov 2026 08:00:00 GMT\r\n";

// The owner's login, user:pa:ss.
void WithLogin(SettingsStore& st) {
    st.WriteIni(u"Options", u"WebAuth", u"1");
    st.WriteIni(u"Options", u"Web_User", u"user");
    st.WriteIni(u"Options", u"Web_Pass", ScramblePassword(u"SET", u"pa:ss"));
}

// Bytes that show where a part was cut from.
QByteArray Pattern(int size) {
    QByteArray data(size, 0);
    for (int i = 0; i < size; ++i)
        data[i] = char(i % 253);
    return data;
}

// curl with events running for the server on this thread; its output, or "exit <code>".
QByteArray Curl(const QStringList& args, QByteArray* log = nullptr) {
    QProcess p;
    p.start(u"curl"_s, QStringList{u"-s"_s, u"-m"_s, u"10"_s} + args);
    WaitForSignal(&p, &QProcess::finished, 15000);
    if (log)
        *log = p.readAllStandardError();
    return p.exitCode() == 0 ? p.readAllStandardOutput()
                             : "exit " + QByteArray::number(p.exitCode());
}

} // namespace

TEST(WebServer, RequestsReachTheirPagesAndABarePathIsRedirectedOnce) {
    Served s;
    // No Date, and the link in the body is the bare scheme.
    EXPECT_EQ(
        s.get("/"),
        "HTTP/1.1 302 Object Moved\r\nLocation: http://a:8080\r\n"
        "Server: Kestrava1.0\r\nContent-Length: 129\r\nContent-Type: "
        "text/html\r\nConnection: close\r\n\r\n<head><title>Document Moved</title></head><body>"
        "<h1>Object Moved</h1>This document may be found <a HREF=\"http://\">"
        "here</a></body>");
    EXPECT_TRUE(s.server.RedirectArmed());

    s.dispatcher.SetGenerator(u"default.asp"_s, [](const PageRequest&) { return u"テスト"_s; });
    EXPECT_EQ(s.get("/"),
              "HTTP/1.1 200 OK\r\nServer: Kestrava1.0\r\n" + DateLine +
                  "Content-Length: 6\r\nContent-Type: text/html\r\nConnection: close\r\n\r\n"
                  "\x83\x65\x83\x58\x83\x67");
    EXPECT_TRUE(WaitUntil([&] { return !s.server.RedirectArmed(); }, 2000));

    // The query or a body (which wins) reaches the page; CP932 raw or escaped; bare LF line ends.
    const QByteArray body = ShiftJis::Encode(u"DevID=1&Button=0&Device=テレビ"_s);
    const QByteArray name = ShiftJis::Encode(u"テレビ"_s);
    const struct {
        QByteArray request, page;
        QString devId, button, device;
    } cases[] = {
        {"GET /remote2.asp?DevID=3&Button=7 HTTP/1.1\r\nHost: h\r\n\r\n",
         "remote2.asp",
         u"3"_s,
         u"7"_s,
         {}},
        {"POST /cremote.asp?DevID=9 HTTP/1.1\r\nHost: h\r\nContent-Length: " +
             QByteArray::number(body.size()) + "\r\n\r\n" + body,
         "cremote.asp", u"1"_s, u"0"_s, u"テレビ"_s},
        {"GET /remote3.asp?DevID=5 HTTP/1.1\nHost: h\n\n", "remote3.asp", u"5"_s, {}, {}},
        {"GET /remote4.asp?DevID=1&Button=0&Device=" + name + " HTTP/1.1\r\n\r\n", "remote4.asp",
         u"1"_s, u"0"_s, u"テレビ"_s},
        {"GET /remote4.asp?DevID=1&Button=0&Device=%83e%83%8C%83r HTTP/1.1\r\n\r\n", "remote4.asp",
         u"1"_s, u"0"_s, u"テレビ"_s},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(BodyOf(Fetch(s.port(), c.request)), "page:" + c.page) << c.request.constData();
        EXPECT_EQ(std::tie(s.last.DevID, s.last.Button, s.last.Device),
                  std::tie(c.devId, c.button, c.device))
            << c.request.constData();
    }
    EXPECT_EQ(s.last.remoteAddress, u"127.0.0.1"_s);
}

// The login guards pages, files and the phone page, whose files are the program's, read-only.
TEST(WebServer, LoginGuardsPagesFilesAndThePhonePage) {
    Served s(WithLogin);
    s.server.AddFront(Phone::Route());
    s.t.writeFile(u"pic/up.gif", "GIF89a");
    for (const QByteArray path : {"/default.asp", "/pic/up.gif"})
        EXPECT_EQ(s.get(path, "Host: h\r\n"),
                  "HTTP/1.1 401 Access Denied\r\nServer: Kestrava1.0\r\n" + DateLine +
                      "WWW-Authenticate: Basic realm=\"Kestrava\"\r\nConnection: Close\r\n"
                      "Content-Length: 38\r\nContent-Type: text/html\r\n\r\n<html>\r\n"
                      "401.2 Access Denied\r\n</html>\r\n")
            << path.constData();
    EXPECT_TRUE(
        s.get("/x.asp", "Authorization: Basic dXNlcjpwYQ==\r\n").startsWith("HTTP/1.1 401"));
    s.t.writeFile(u"m/app.js"_s, "from the folder");
    const QByteArray login = "Host: a\r\nAuthorization: Basic dXNlcjpwYTpzcw==\r\n";
    EXPECT_TRUE(s.get("/m/").startsWith("HTTP/1.1 401 "));
    const QByteArray js = s.get("/m/app.js", login);
    EXPECT_TRUE(HeadOf(js).contains("Content-Type: text/javascript; charset=utf-8\r\n"));
    EXPECT_TRUE(HeadOf(js).contains("Content-Security-Policy: default-src 'self'"));
    EXPECT_FALSE(BodyOf(js).contains("from the folder"));
    // Compressed for a client that takes gzip, and the same bytes once unpacked.
    EXPECT_TRUE(HeadOf(js).contains("Vary: Accept-Encoding\r\n"));
    EXPECT_FALSE(HeadOf(js).contains("Content-Encoding"));
    EXPECT_FALSE(HeadOf(s.get("/m/app.js", login + "Accept-Encoding: gzip;q=0\r\n"))
                     .contains("Content-Encoding"));
    const QByteArray packed = s.get("/m/app.js", login + "Accept-Encoding: br, gzip\r\n");
    EXPECT_TRUE(HeadOf(packed).contains("Content-Encoding: gzip\r\n"));
    EXPECT_LT(BodyOf(packed).size(), BodyOf(js).size() / 2);
    QProcess gunzip;
    gunzip.start(u"gzip"_s, {u"-dc"_s});
    gunzip.write(BodyOf(packed));
    gunzip.closeWriteChannel();
    gunzip.waitForFinished();
    EXPECT_EQ(gunzip.readAllStandardOutput(), BodyOf(js));
    // A text file of the folder too; its bytes as ever to a client that does not take gzip.
    s.t.writeFile(u"notes.txt"_s, QByteArray(4000, 'a'));
    EXPECT_EQ(BodyOf(s.get("/notes.txt", login)), QByteArray(4000, 'a'));
    EXPECT_TRUE(HeadOf(s.get("/notes.txt", login + "Accept-Encoding: gzip\r\n"))
                    .contains("Content-Encoding: gzip\r\n"));
    EXPECT_TRUE(BodyOf(s.get("/m/?from=home", login)).startsWith("<!doctype html>"));
    EXPECT_TRUE(HeadOf(s.get("/m/manifest.webmanifest", login))
                    .contains("Content-Type: application/manifest+json\r\n"));
    for (const QByteArray path : {"/m/x.js", "/m/../setting.ini", "/m/index.html/"})
        EXPECT_TRUE(s.get(path, login).startsWith("HTTP/1.1 404 Not Found\r\n"))
            << path.constData();
    EXPECT_TRUE(Fetch(s.port(), "POST /m/ HTTP/1.1\r\n" + login + "Content-Length: 0\r\n\r\n")
                    .startsWith("HTTP/1.1 405 "));
    EXPECT_TRUE(s.calls.isEmpty());
    EXPECT_EQ(BodyOf(s.get("/x.asp?a=1", login)), "");
    EXPECT_EQ(BodyOf(s.get("/pic/up.gif", login)), "GIF89a");
}

// No login while setting.ini cannot be read; once it can, it holds, and a typed one overrides it.
TEST(WebServer, TheLoginFailsClosedUntilTheSettingsCanBeRead) {
    Served s([](SettingsStore& st) {
        QFile::remove(st.path());
        QDir().mkdir(st.path()); // a directory cannot be read as a file
    });
    const QString ini = s.t.folder.settingsPath();
    const QByteArray login = "Authorization: Basic dXNlcjpwYTpzcw==\r\n"; // user:pa:ss
    const QByteArray typed = "Authorization: Basic dXNlcjp0eXBlZA==\r\n"; // user:typed
    for (const QByteArray path : {"/x.asp", "/pic/up.gif", "/"})
        for (const QByteArray& extra : {QByteArray(), login})
            EXPECT_TRUE(s.get(path, extra).startsWith("HTTP/1.1 401 Access Denied\r\n"))
                << path.constData();

    ASSERT_TRUE(QDir().rmdir(ini));
    s.t.writeFile(u"setting.ini"_s, "[WebServer]\r\nHosts=other.example\r\n[Options]\r\nWebAuth=1"
                                    "\r\nWeb_User=user\r\nWeb_Pass=" +
                                        ScramblePassword(u"SET", u"pa:ss").toLatin1());
    EXPECT_EQ(BodyOf(s.get("/default.asp", login)), "page:default.asp");
    const QByteArray other = "Host: other.example\r\n";
    EXPECT_EQ(BodyOf(s.get("/default.asp", other + login)), "page:default.asp");

    s.server.SetWebPass(u"typed"_s);
    EXPECT_TRUE(s.get("/x.asp", login).startsWith("HTTP/1.1 401"));
    EXPECT_EQ(BodyOf(s.get("/default.asp", typed)), "page:default.asp");

    ASSERT_TRUE(QFile::rename(ini, ini + u".away"_s));
    ASSERT_TRUE(QDir().mkdir(ini));
    EXPECT_TRUE(s.get("/x.asp", typed).startsWith("HTTP/1.1 401"));
    EXPECT_TRUE(s.get("/x.asp", other + typed).startsWith("HTTP/1.1 421 "));
    EXPECT_TRUE(s.get("/x.asp", "Host: localhost\r\n" + typed).startsWith("HTTP/1.1 401 "));
    ASSERT_TRUE(QDir().rmdir(ini));
    ASSERT_TRUE(QFile::rename(ini + u".away"_s, ini));
    EXPECT_EQ(BodyOf(s.get("/default.asp", typed)), "page:default.asp");
}

// Actions named cross-site by Sec-Fetch-Site, Origin or Referer are refused; views are not.
TEST(WebServer, ActionsFromAnotherSiteAreRefused) {
    Served s;
    const QByteArray acts[] = {
        "GET /remote4.asp?DevID=1&Button=3&Device=x HTTP/1.1",
        "GET /cremote.asp?DevID=1&Button=0 HTTP/1.1",
        "GET /hibern.asp HTTP/1.1",
        "GET /list.asp?Reserve=a&B1=%8D%ED%8F%9C HTTP/1.1",
        "POST /add2.asp HTTP/1.1\r\nContent-Length: 9\r\n\r\nDev=x&R1=",
    };
    const QByteArray foreign[] = {"Sec-Fetch-Site: cross-site", "Origin: http://evil.example",
                                  "Referer: http://evil.example/a:8080/", "Origin: null"};
    const QByteArray home[] = {"", "Sec-Fetch-Site: same-origin", "Origin: http://A:8080",
                               "Referer: http://a/remote.asp?x=1"};
    auto ask = [&](const QByteArray& request, const QByteArray& header) {
        const qsizetype line = request.indexOf("\r\n");
        QByteArray head = "\r\nHost: a:8080\r\n" + (header.isEmpty() ? "" : header + "\r\n");
        return Fetch(s.port(), line < 0 ? request + head + "\r\n"
                                        : request.left(line) + head.chopped(2) + request.mid(line));
    };
    for (const QByteArray& request : acts) {
        for (const QByteArray& header : foreign)
            EXPECT_EQ(ask(request, header),
                      "HTTP/1.1 403 Forbidden\r\nServer: Kestrava1.0\r\n" + DateLine +
                          "Content-Length: 32\r\nContent-Type: text/html\r\nConnection: "
                          "close\r\n\r\n<html>\r\n403 Forbidden\r\n</html>\r\n")
                << request.constData() << " " << header.constData();
        EXPECT_TRUE(s.calls.isEmpty()) << request.constData();
        for (const QByteArray& header : home)
            EXPECT_TRUE(ask(request, header).startsWith("HTTP/1.1 200 OK"))
                << request.constData() << " " << header.constData();
        s.calls.clear();
    }
    for (const QByteArray shows : {"GET /remote4.asp?DevID=1&Button=&Device=x HTTP/1.1",
                                   "GET /list.asp HTTP/1.1", "GET /pic/x.gif HTTP/1.1"})
        EXPECT_FALSE(ask(shows, foreign[0]).startsWith("HTTP/1.1 403")) << shows.constData();
}

// DNS rebinding: only this server's names (or no Host) are served, on pages, files and fronts.
TEST(WebServer, OnlyRequestsNamingThisServerAreServed) {
    Served s([](SettingsStore& st) {
        st.WriteIni(u"Options", u"DNS_Host", u"Home.Example.net");
        st.WriteIni(u"WebServer", u"Hosts", u" a , other.example:8080 ,h");
    });
    s.server.AddFront(Phone::Route());
    const QByteArray machine = QSysInfo::machineHostName().toUtf8();
    const std::pair<QByteArray, bool> hosts[] = {
        {"Host: 127.0.0.1:8080", true},
        {"Host: [::1]:8080", true},
        {"Host: LOCALHOST.", true},
        {"Host: " + machine, true},
        {"Host: " + machine.toUpper() + ".local:80", true},
        {"Host: home.example.NET.", true},
        {"Host: other.example", true},
        {"", true},
        {"Host: evil.example:8080", false},
        {"Host: 127.0.0.1.evil.example", false},
        {"Host: localhost.evil.example", false},
        {"Host: home.example.net.evil", false},
        {"Host: ::1", false},
        {"Host: a b", false},
        {"Host:", false},
    };
    for (const auto& [line, served] : hosts)
        for (const QByteArray path : {"/x.asp", "/help/wake.html", "/m/"}) {
            const QByteArray r =
                Fetch(s.port(), "GET " + path + " HTTP/1.1\r\n" +
                                    (line.isEmpty() ? "" : line + "\r\n") + "\r\n");
            EXPECT_EQ(r.startsWith("HTTP/1.1 421 "), !served)
                << line.constData() << path.constData();
        }

    // The attack itself: with no login, a press from the other site's page.
    s.calls.clear();
    EXPECT_EQ(s.get("/remote4.asp?DevID=1&Button=3&Device=x",
                    "Host: evil.example:8080\r\nOrigin: http://evil.example:8080\r\n"),
              "HTTP/1.1 421 Misdirected Request\r\nServer: Kestrava1.0\r\n" + DateLine +
                  "Content-Length: 42\r\nContent-Type: text/html\r\nConnection: close\r\n\r\n"
                  "<html>\r\n421 Misdirected Request\r\n</html>\r\n");
    EXPECT_TRUE(s.calls.isEmpty());
}

// Five wrong logins hold up that address only, on pages and fronts; a right one later forgets them.
TEST(WebServer, WrongLoginsAreHeldUpPerAddress) {
    Served s(WithLogin);
    s.server.AddFront(Phone::Route());
    const QByteArray wrong = "Authorization: Basic " + QByteArray("user:nope").toBase64() + "\r\n";
    const QByteArray right = "Authorization: Basic dXNlcjpwYTpzcw==\r\n";
    const QHostAddress home(u"127.0.0.1"_s), other(u"127.0.0.2"_s);
    auto ask = [&](const QHostAddress& from, const QByteArray& login,
                   const QByteArray& path = "/default.asp") {
        return Fetch(s.port(), "GET " + path + " HTTP/1.1\r\nHost: h\r\n" + login + "\r\n",
                     QHostAddress::LocalHost, from);
    };
    auto status = [](const QByteArray& r) { return r.mid(9, 3).toInt(); };
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(status(ask(home, wrong, i == 4 ? "/m/" : "/default.asp")), 401) << i;
    EXPECT_EQ(ask(home, right),
              "HTTP/1.1 429 Too Many Requests\r\nServer: Kestrava1.0\r\n" + DateLine +
                  "Retry-After: 30\r\nContent-Length: 40\r\nContent-Type: text/html\r\n"
                  "Connection: close\r\n\r\n<html>\r\n429 Too Many Requests\r\n</html>\r\n");
    EXPECT_TRUE(HeadOf(ask(home, right, "/m/")).contains("\r\nRetry-After: 30\r\n"));
    EXPECT_EQ(status(ask(home, {})), 429);
    EXPECT_EQ(BodyOf(ask(other, right)), "page:default.asp");
    EXPECT_EQ(s.calls, QStringList{u"default.asp"_s});

    s.clock.at = s.clock.at.addSecs(31);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(status(ask(home, right)), 200) << round;
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(status(ask(home, wrong)), 401) << round << i;
    }
}

// Files whole and in ranges, from their own folders only; a reader that stalls is let go.
TEST(WebServer, FilesAreServedFromTheirOwnFoldersOnly) {
    Served s;
    const QByteArray data = Pattern(1000);
    s.t.writeFile(u"pic/up.gif", data);

    QByteArray whole = s.get("/pic/up.gif");
    EXPECT_EQ(HeadOf(whole),
              "HTTP/1.1 200 OK\r\nServer: Kestrava1.0\r\n" + DateLine +
                  "Content-Length: 1000\r\nContent-Type: image/gif\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(BodyOf(whole), data);

    QByteArray part = s.get("/pic/up.gif", "Host: h\r\nRange: bytes=100-199\r\n");
    EXPECT_EQ(HeadOf(part), "HTTP/1.1 206 Partial content\r\nServer: Kestrava1.0\r\n" + DateLine +
                                "Content-Length: 900\r\nContent-Range: bytes 100-999/1000\r\n"
                                "Content-Type: image/gif\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(BodyOf(part), data.mid(100));

    // Larger than one write: the file goes out from the disk, from its start or a range.
    const QByteArray large = Pattern(3 * 1024 * 1024 + 7);
    s.t.writeFile(u"pic/large.mpg", large);
    EXPECT_EQ(BodyOf(s.get("/pic/large.mpg")), large);
    EXPECT_EQ(BodyOf(s.get("/pic/large.mpg", "Range: bytes=70000-\r\n")), large.mid(70000));
    QByteArray beyond = s.get("/pic/up.gif", "Range: bytes=1000-\r\n");
    EXPECT_TRUE(beyond.startsWith("HTTP/1.1 416 Requested Range Not Satisfiable\r\n"));
    EXPECT_TRUE(beyond.contains("Content-Range: bytes */1000\r\n"));

    // A client with a tiny receive window that stops reading is closed after the stall limit.
    s.t.writeFile(u"big.mpg", QByteArray(32 * 1024 * 1024, 'x'));
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    const int small = 4096;
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    const timeval wait{5, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(s.port());
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
    const QByteArray request = "GET /big.mpg HTTP/1.1\r\n\r\n";
    ASSERT_EQ(::send(fd, request.constData(), size_t(request.size()), 0), request.size());
    WaitMs(1000);
    qint64 total = 0;
    char buffer[65536];
    ssize_t n = 0;
    while ((n = ::read(fd, buffer, sizeof buffer)) > 0)
        total += n;
    ::close(fd);
    EXPECT_EQ(n, 0); // closed by the server, not a time-out here
    EXPECT_LT(total, 32 * 1024 * 1024);

    // Help comes from its own folder; private files and those outside are missing; nothing is made.
    s.t.writeFile(u"help/wake.html"_s, "<p>program folder</p>");
    s.t.writeFile(u"doc/wake.html"_s, "<p>wake</p>");
    s.t.writeFile(u"doc/help.css"_s, "p {}");
    s.server.helpFolder = s.t.path(u"doc");
    const QByteArray page = s.get("/help/wake.html");
    EXPECT_EQ(HeadOf(page), "HTTP/1.1 200 OK\r\nServer: Kestrava1.0\r\n" + DateLine +
                                "Content-Length: 11\r\nContent-Type: text/html\r\n"
                                "Connection: close\r\n\r\n");
    EXPECT_EQ(BodyOf(page), "<p>wake</p>");
    EXPECT_TRUE(s.get("/help/help.css").contains("\r\nContent-Type: text/css\r\n"));
    EXPECT_TRUE(s.get("/help/").startsWith("HTTP/1.1 302"));
    s.t.settings.WriteIni(u"Options", u"Web_Pass", u"secret");
    s.t.writeFile(u"IRSignals/TV-power.bin", "signal");
    s.t.writeFile(u"acme/certificate.pem", "secret key");
    s.t.writeFile(u"empty.gif", "");
    s.t.writeFile(u"../outside.txt", "outside");
    QFile::link(u"/etc/hostname"_s, s.t.path(u"link.txt"));
    const QStringList before = QDir(s.t.root()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);

    EXPECT_EQ(s.get("/nothing.gif"),
              "HTTP/1.1 404 Object Not Found\r\nServer: Kestrava1.0\r\n" + DateLine +
                  "Connection: Close\r\nContent-Length: 32\r\nContent-Type: text/html\r\n\r\n"
                  "<html>\r\n404 Not Found\r\n</html>\r\n");
    for (const QByteArray path :
         {"/SETTING.INI", "/irsignals/TV-power.bin", "/ACME/certificate.pem", "/kestrava.lock",
          "/empty.gif", "/../outside.txt", "/%2e%2e/outside.txt", "/pic/..%2f..%2foutside.txt",
          "/link.txt", "/\\..\\outside.txt", "/pic", "/help/missing.html", "/help/../setting.ini",
          "/help/%2e%2e/doc/wake.html", "/help/../help/wake.html"}) {
        QByteArray r = s.get(path);
        EXPECT_TRUE(r.startsWith("HTTP/1.1 404 ") || r.startsWith("HTTP/1.1 302"))
            << path.constData() << "\n"
            << r.left(40).constData();
        EXPECT_FALSE(r.contains("signal") || r.contains("secret") || r.contains("outside") ||
                     r.contains("<p>"));
    }

    EXPECT_EQ(QDir(s.t.root()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), before);
    s.server.helpFolder.clear();
    EXPECT_TRUE(s.get("/help/wake.html").startsWith("HTTP/1.1 404"));
}

// A taken or bad stored port is replaced for this run only; a missing one is stored if it can be.
TEST(WebServer, UnusablePortsAreReplacedForThisRunOnly) {
    QTcpServer holder, probe; // a port in use, and one free
    ASSERT_TRUE(holder.listen(QHostAddress::Any, 0) && probe.listen(QHostAddress::Any, 0));
    const quint16 spare = probe.serverPort();
    probe.close();
    const QString taken = QString::number(holder.serverPort());
    for (const QString& stored : {taken, u"abc"_s, u"99999"_s}) {
        Served s([&](SettingsStore& st) { st.WriteIni(u"WebServer", u"Port", stored); }, spare);
        EXPECT_EQ(s.server.WebPort(), spare) << stored.toStdString();
        EXPECT_TRUE(s.server.HasListened());
        EXPECT_EQ(s.t.settings.ReadIni(u"WebServer", u"Port"), stored);
        EXPECT_EQ(s.prompt.shown, stored == taken
                                      ? QStringList{u"warning:"_s + WebServer::PortInUseText}
                                      : QStringList{});
    }
    {
        Served fresh([](SettingsStore& st) { st.DeleteIniSection(u"WebServer"); }, spare);
        EXPECT_EQ(fresh.t.settings.ReadIni(u"WebServer", u"Port"), QString::number(spare));
    }
    Served unstorable(
        [](SettingsStore& st) {
            st.DeleteIniSection(u"WebServer");
            QFile::remove(st.path());
            QDir().mkdir(st.path());
        },
        spare);
    EXPECT_EQ(unstorable.server.WebPort(), spare);
}

// With internet use off a public client is refused, also while setting.ini is unreadable or empty.
TEST(WebServer, TheLanFilterFailsClosed) {
    const QHostAddress outside(u"203.0.113.5"_s), home(u"192.168.1.20"_s);
    Served s([](SettingsStore& st) { st.WriteIni(u"Options", u"Internet", u"0"); });
    const QString ini = s.t.folder.settingsPath();
    EXPECT_FALSE(s.server.Admits(outside));
    QFile::remove(ini);
    QDir().mkdir(ini);
    EXPECT_FALSE(s.server.Admits(outside));
    EXPECT_TRUE(s.server.Admits(home));
    QDir().rmdir(ini);
    s.t.writeFile(u"setting.ini", {});
    EXPECT_FALSE(s.server.Admits(outside));

    s.t.writeFile(u"setting.ini", "[Options]\r\nInternet=1\r\n");
    EXPECT_TRUE(s.server.Admits(outside));
    QFile::remove(ini);
    EXPECT_FALSE(s.server.Admits(outside));
}

TEST(WebServer, BadInputAndIdleConnectionsDoNotLockOthersOut) {
    Served s(WithLogin);
    const QByteArray inputs[] = {
        "GET /x.asp HTTP/1.1\r\n" + QByteArray(100 * 1024, 'h') + "\r\n\r\n",
        "POST /list.asp HTTP/1.1\r\nContent-Length: 2000000\r\n\r\n",
        "GET / HTTP/1.1\r\n", // never ends: the test's limit is 300 ms
        "GET /%",
        "GET /% HTTP/1.1\r\nAuthorization: Basic !!notbase64\r\n\r\n",
        "POST /x.asp HTTP/1.1\r\nContent-Length: 3\r\n\r\nabcdefgh",
        "GET /pic/up.gif HTTP/1.1\r\nRange: bytes=abc-\r\n\r\n",
    };
    for (const QByteArray& input : inputs) {
        RawConnection c(s.port());
        c.send(input);
        c.readAll(3000);
        EXPECT_EQ(c.socket.state(), QAbstractSocket::UnconnectedState)
            << input.left(30).toHex().constData();
        EXPECT_TRUE(c.received.isEmpty() || c.received.startsWith("HTTP/1.1 401 Access Denied"))
            << c.received.left(60).constData();
    }
    EXPECT_TRUE(s.get("/x.asp").startsWith("HTTP/1.1 401"));

    // Two thousand idle connections do not lock others out either.
    std::vector<std::unique_ptr<QTcpSocket>> idle;
    for (int i = 0; i < 2000; ++i) {
        idle.push_back(std::make_unique<QTcpSocket>());
        idle.back()->connectToHost(QHostAddress::LocalHost, s.port());
    }
    WaitMs(200);
    EXPECT_TRUE(s.get("/x.asp").startsWith("HTTP/1.1 401"));
    EXPECT_LE(s.server.SlotCount(), WebServer::MaxSlots);
    EXPECT_GT(s.server.SlotCount(), WebServer::PoolSlots);

    // Once they are gone, the slots beyond the pool give their memory back.
    idle.clear();
    WaitMs(600);
    EXPECT_LE(s.server.SlotCount(), WebServer::PoolSlots);
    EXPECT_TRUE(s.get("/x.asp").startsWith("HTTP/1.1 401"));
}

// Outside clients go to HTTPS before any login (open routes and home stay plain); the HTTPS port
// serves what the plain one does; TLS below 1.2 and an unfinished handshake are refused.
TEST(WebServer, HttpsTakesOutsideClientsAndServesWhatThePlainPortServes) {
    QTemporaryDir dir;
    const TlsFiles cert = MakeCertificate(dir.path(), u"server"_s, u"IP:127.0.0.1"_s);
    if (cert.cert.isEmpty() || QStandardPaths::findExecutable(u"curl"_s).isEmpty())
        GTEST_SKIP() << "needs openssl and curl";
    Served s([](SettingsStore& st) {
        st.WriteIni(u"WebServer", u"HttpsPort", u"0");
        st.WriteIni(u"WebServer", u"Hosts", u"a,h,a.example");
        WithLogin(st);
    });
    EXPECT_EQ(s.server.HttpsPort(), 0); // no certificate yet
    s.server.SetTlsConfiguration(cert.server());
    ASSERT_NE(s.server.HttpsPort(), 0);
    const QByteArray https = QByteArray::number(s.server.HttpsPort());
    QStringList handled;
    const auto handler = [&](const FrontRequest& r, const FrontReply& reply) {
        handled << r.path;
        reply.Send(200, "text/plain", r.path.toUtf8());
    };
    s.server.AddFront({.prefix = u"/api/"_s, .handler = handler});
    s.server.AddFront(
        {.prefix = u"/.well-known/acme-challenge/"_s, .handler = handler, .open = true});
    s.server.atHome = [](const QHostAddress&) { return false; };

    const struct {
        QByteArray request, location;
    } cases[] = {
        {"GET /x.asp?DevID=1&Device=\x83"
         "e HTTP/1.1\r\nHost: a.example:8080\r\n\r\n",
         "https://a.example:" + https + "/x.asp?DevID=1&Device=%83e"},
        {"GET /pic/up.gif HTTP/1.1\r\nHost: [fd00::1]:8080\r\n\r\n",
         "https://[fd00::1]:" + https + "/pic/up.gif"},
        {"POST /api/v1/press HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}",
         "https://127.0.0.1:" + https + "/api/v1/press"},
    };
    for (const auto& c : cases) {
        const QByteArray answer = Fetch(s.port(), c.request);
        EXPECT_TRUE(answer.startsWith("HTTP/1.1 301 Moved Permanently\r\n") &&
                    answer.contains("\r\nLocation: " + c.location + "\r\n"))
            << answer.constData();
        EXPECT_FALSE(answer.contains("WWW-Authenticate")) << answer.constData();
    }
    // A page's answer is the classic one, byte for byte.
    EXPECT_EQ(Fetch(s.port(), cases[0].request),
              "HTTP/1.1 301 Moved Permanently\r\nLocation: https://a.example:" + https +
                  "/x.asp?DevID=1&Device=%83e\r\nServer: Kestrava1.0\r\nContent-Length: "
                  "0\r\nConnection: close\r\n\r\n");
    EXPECT_TRUE(s.calls.isEmpty());
    EXPECT_TRUE(handled.isEmpty());

    s.server.SetWebAuthOn(false);
    EXPECT_EQ(BodyOf(s.get("/.well-known/acme-challenge/token")),
              "/.well-known/acme-challenge/token");
    s.server.atHome = IsPrivateAddress;
    EXPECT_TRUE(s.get("/x.asp").startsWith("HTTP/1.1 200 OK"));

    const QByteArray large = Pattern(700 * 1024 + 3);
    s.t.writeFile(u"pic/large.mpg", large);
    s.t.writeFile(u"pic/up.gif", large.left(1000));

    const QString plain = u"http://127.0.0.1:%1"_s.arg(s.port());
    const QString tls = u"https://127.0.0.1:%1"_s.arg(s.server.HttpsPort());
    const QList<QStringList> fetches = {
        {u"/x.asp?DevID=1"_s},
        {u"/pic/up.gif"_s, u"-r"_s, u"100-"_s},
        {u"/pic/large.mpg"_s},
        {u"/pic/large.mpg"_s, u"-r"_s, u"70000-"_s},
        {u"/api/a"_s, u"/api/b"_s, u"/api/c"_s},
    };
    for (const QStringList& c : fetches) {
        QStringList over = {u"-D"_s, u"-"_s},
                    overTls = {u"-D"_s, u"-"_s, u"-v"_s, u"--cacert"_s, cert.cert};
        for (const QString& arg : c) {
            over << (arg.startsWith(u'/') ? plain + arg : arg);
            overTls << (arg.startsWith(u'/') ? tls + arg : arg);
        }
        QByteArray log;
        const QByteArray expected = Curl(over);
        EXPECT_TRUE(expected.startsWith("HTTP/1.1 20")) << expected.left(60).constData();
        EXPECT_EQ(Curl(overTls, &log), expected) << c.first().toStdString();
        if (c.filter(QRegularExpression(u"^/"_s)).size() > 1) {
            EXPECT_EQ(log.count("Re-using existing connection"), 2) << log.constData();
        }
    }

    // The client offers TLS 1.1 at most, then 1.2 at most, both on its lowest security level.
    const QStringList old = {u"--cacert"_s,           cert.cert,      u"--ciphers"_s,
                             u"DEFAULT@SECLEVEL=0"_s, u"--tlsv1.1"_s, tls + u"/pic/up.gif"_s};
    EXPECT_TRUE(Curl(old + QStringList{u"--tls-max"_s, u"1.1"_s}).startsWith("exit "));
    EXPECT_EQ(Curl(old + QStringList{u"--tls-max"_s, u"1.2"_s}), large.left(1000));

    RawConnection silent(s.server.HttpsPort());
    silent.readAll(3000);
    EXPECT_EQ(silent.socket.state(), QAbstractSocket::UnconnectedState);
}
