#include "app/RemoteCommand.h"

#include "core/Password.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/Wait.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QHash>
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
        request += "Content-Type: application/json\r\n";
    if (method != "GET")
        request += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
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

// The instance words its refusals in Japanese; the command line speaks English
// and keeps the instance's words only where they hold the detail.
int Refused(const Answer& a, const QString& notFound = {}) {
    const QString code = a.body.value(u"error"_s).toString();
    const QString message = a.body.value(u"message"_s).toString();
    static const QHash<QString, QString> Words{
        {u"not_found"_s, u"no such remote, key or scene"_s},
        {u"not_learned"_s, u"the key has not been learned"_s},
        {u"busy"_s, u"the transceiver is busy; try again"_s},
        {u"unauthorized"_s, u"the instance refused the folder's login"_s},
        {u"bad_request"_s, u"the instance refused the request"_s},
    };
    if (code == u"step_failed")
        return Fail(
            u"step %1 of the scene failed: %2"_s.arg(a.body.value(u"step"_s).toInt()).arg(message));
    if (code == u"not_found" && !notFound.isEmpty())
        return Fail(notFound);
    if (code == u"transceiver_failed")
        return Fail(u"the transceiver failed: "_s + message);
    return Fail(Words.value(code, u"the instance answered HTTP %1"_s.arg(a.status)));
}

int Silent(qint64 port) {
    std::fprintf(stderr, "kestrava: the instance on port %lld does not answer\n", port);
    return NoInstance;
}

// The remotes and their learned keys, as lines or as JSON.
int List(const Answer& a, bool json) {
    QJsonArray remotes;
    for (const QJsonValue remote : a.body.value(u"remotes"_s).toArray()) {
        QJsonArray keys;
        for (const QJsonValue key : remote[u"keys"_s].toArray())
            if (key[u"learned"_s].toBool())
                keys.append(QJsonObject{{u"id"_s, key[u"id"_s]},
                                        {u"name"_s, key[u"name"_s]},
                                        {u"code"_s, key[u"code"_s]}});
        remotes.append(QJsonObject{
            {u"id"_s, remote[u"id"_s]}, {u"name"_s, remote[u"name"_s]}, {u"keys"_s, keys}});
    }
    if (json) {
        std::printf("%s\n", QJsonDocument(QJsonObject{{u"remotes"_s, remotes}})
                                .toJson(QJsonDocument::Compact)
                                .constData());
        return 0;
    }
    for (const QJsonValue remote : remotes) {
        std::printf("%s\n", qPrintable(remote[u"name"_s].toString()));
        for (const QJsonValue key : remote[u"keys"_s].toArray())
            std::printf("\t%s%s\n", qPrintable(key[u"name"_s].toString()),
                        key[u"code"_s].isString() ? qPrintable(u"\t"_s + key[u"code"_s].toString())
                                                  : "");
    }
    return 0;
}

} // namespace

int RunRemoteCommand(const ProgramFolder& folder, const QString& command,
                     const QStringList& arguments, bool json) {
    const qint64 pid = QFileInfo::exists(folder.root()) ? InstanceLock::Holder(folder) : 0;
    InstanceLock probe;
    QString error;
    if (pid <= 0 || !QFileInfo::exists(folder.settingsPath()) ||
        probe.Acquire(folder, &error) != InstanceLock::Result::HeldElsewhere) {
        std::fprintf(stderr, "kestrava: no instance is running on %s\n", qPrintable(folder.root()));
        return NoInstance;
    }
    SettingsStore settings(folder.settingsPath());
    const qint64 port = Val(settings.Read(Key::WebPort));
    if (settings.Unreadable() || port < 1 || port > 65535) {
        std::fprintf(stderr, "kestrava: %s names no web port\n", qPrintable(settings.path()));
        return 1;
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
        return a.status == 0     ? Silent(port)
               : a.status != 200 ? Refused(a, u"no remote '%1' with a key '%2'"_s.arg(
                                                  arguments.value(0), arguments.value(1)))
                                 : 0;
    }
    if (command == u"scene") {
        const Answer all = Ask(quint16(port), auth, "GET", "/api/v1/scenes", {}, 10000);
        if (all.status != 200)
            return all.status == 0 ? Silent(port) : Refused(all);
        const QString name = arguments.value(0).trimmed();
        int id = 0;
        for (const QJsonValue scene : all.body.value(u"scenes"_s).toArray())
            if (scene[u"name"_s].toString() == name)
                id = scene[u"id"_s].toInt();
        if (!id)
            return Fail(u"no scene is named '%1'"_s.arg(name));
        // The answer comes when the last step has gone: a scene of the longest
        // waits, queued behind others, may take many minutes.
        const Answer a = Ask(quint16(port), auth, "POST",
                             "/api/v1/scenes/" + QByteArray::number(id) + "/run", {}, 3600000);
        return a.status == 0     ? Silent(port)
               : a.status != 200 ? Refused(a, u"the scene '%1' is gone"_s.arg(name))
                                 : 0;
    }
    const Answer a = Ask(quint16(port), auth, "GET", "/api/v1/remotes", {}, 10000);
    return a.status == 0 ? Silent(port) : a.status != 200 ? Refused(a) : List(a, json);
}
