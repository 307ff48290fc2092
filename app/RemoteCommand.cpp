#include "app/RemoteCommand.h"

#include "core/Password.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/Wait.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype MaxAnswerBytes = 16 * 1024 * 1024;

struct Answer {
    int status = 0; // 0: no answer
    QJsonObject body;
};

// One request to the instance, waiting with events running.
Answer Ask(quint16 port, const QByteArray& auth, const QByteArray& method, const QByteArray& path,
           const QByteArray& body, int timeoutMs) {
    QTcpSocket socket;
    socket.connectToHost(u"127.0.0.1"_s, port);
    if (socket.state() != QAbstractSocket::ConnectedState &&
        !WaitForSignal(&socket, &QTcpSocket::connected, 3000))
        return {};
    QByteArray request = method + ' ' + path +
                         " HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(port) +
                         "\r\nConnection: close\r\n";
    if (!auth.isEmpty())
        request += "Authorization: Basic " + auth + "\r\n";
    if (!body.isEmpty())
        request +=
            "Content-Type: application/json\r\nContent-Length: " + QByteArray::number(body.size()) +
            "\r\n";
    socket.write(request + "\r\n" + body);
    // The answer is whole at its Content-Length.
    QByteArray received;
    qsizetype end = -1, length = -1;
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        received += socket.readAll();
        end = received.indexOf("\r\n\r\n");
        if (end >= 0 && length < 0) {
            const QByteArray head = received.left(end).toLower();
            const qsizetype at = head.indexOf("\r\ncontent-length:");
            length = at < 0 ? 0
                            : head.mid(at + 17, head.indexOf('\r', at + 2) - at - 17)
                                  .trimmed()
                                  .toLongLong();
        }
        // Our own answers are small: a peer that goes on is not waited for.
        if ((end >= 0 && received.size() >= end + 4 + length) || received.size() > MaxAnswerBytes ||
            socket.state() != QAbstractSocket::ConnectedState || timer.elapsed() >= timeoutMs)
            break;
        WaitForSignal(&socket, &QTcpSocket::readyRead, int(timeoutMs - timer.elapsed()));
    }
    if (!received.startsWith("HTTP/1.1 ") || end < 0)
        return {};
    Answer a;
    a.status = received.mid(9, 3).toInt();
    a.body = QJsonDocument::fromJson(received.mid(end + 4)).object();
    return a;
}

int Fail(const QString& text) {
    std::fprintf(stderr, "kestrava: %s\n", qPrintable(text));
    return 1;
}

} // namespace

int RunRemoteCommand(const ProgramFolder& folder, const QString& command,
                     const QStringList& arguments) {
    const qint64 pid = QFileInfo::exists(folder.root()) ? InstanceLock::Holder(folder) : 0;
    InstanceLock probe;
    QString error;
    if (pid <= 0 || !QFileInfo::exists(folder.settingsPath()) ||
        probe.Acquire(folder, &error) != InstanceLock::Result::HeldElsewhere) {
        std::fprintf(stderr, "kestrava: no instance is running on %s\n", qPrintable(folder.root()));
        return 2;
    }
    SettingsStore settings(folder.settingsPath());
    const qint64 port = Val(settings.Read(Key::WebPort));
    if (settings.Unreadable() || port < 1 || port > 65535) {
        std::fprintf(stderr, "kestrava: %s names no web port\n", qPrintable(settings.path()));
        return 2;
    }
    QByteArray auth;
    if (settings.IsOn(Key::WebAuth))
        auth = (settings.Read(Key::WebUser) + u':' +
                ScramblePassword(u"RESET", settings.Read(Key::WebPass)))
                   .toUtf8()
                   .toBase64();

    if (command == u"press") {
        const QByteArray body = QJsonDocument(QJsonObject{{u"remote"_s, arguments.value(0)},
                                                          {u"key"_s, arguments.value(1)}})
                                    .toJson(QJsonDocument::Compact);
        // A press waits behind the others in the queue.
        const Answer a = Ask(quint16(port), auth, "POST", "/api/v1/press", body, 60000);
        if (a.status == 0) {
            std::fprintf(stderr, "kestrava: the instance on port %lld does not answer\n", port);
            return 2;
        }
        if (a.status != 200)
            return Fail(a.body.value(u"message"_s).toString(u"HTTP %1"_s.arg(a.status)));
        return 0;
    }
    const Answer a = Ask(quint16(port), auth, "GET", "/api/v1/remotes", {}, 10000);
    if (a.status == 0) {
        std::fprintf(stderr, "kestrava: the instance on port %lld does not answer\n", port);
        return 2;
    }
    if (a.status != 200)
        return Fail(a.body.value(u"message"_s).toString(u"HTTP %1"_s.arg(a.status)));
    for (const QJsonValue remote : a.body.value(u"remotes"_s).toArray()) {
        std::printf("%s\n", qPrintable(remote[u"name"_s].toString()));
        for (const QJsonValue key : remote[u"keys"_s].toArray())
            if (key[u"learned"_s].toBool())
                std::printf("\t%s%s\n", qPrintable(key[u"name"_s].toString()),
                            key[u"code"_s].isString()
                                ? qPrintable(u"\t"_s + key[u"code"_s].toString())
                                : "");
    }
    return 0;
}
