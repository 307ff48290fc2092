#pragma once

#include "core/Password.h"
#include "core/Settings.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>

// Records each request's head and gives `answer`, or hangs when it is empty. A stand-in: no Debian
// package serves the address lookup or dyndns2.
class HttpStandIn : public QObject {
public:
    HttpStandIn() {
        server.listen(QHostAddress::LocalHost);
        QObject::connect(&server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* s = server.nextPendingConnection()) {
                s->setParent(this);
                QObject::connect(s, &QTcpSocket::readyRead, s, [this, s] {
                    QByteArray& got = pending[s];
                    got += s->readAll();
                    if (!got.contains("\r\n\r\n"))
                        return;
                    requests << got;
                    got.clear();
                    if (answer.isEmpty())
                        return;
                    s->write(answer);
                    s->disconnectFromHost();
                });
            }
        });
    }

    // "200 OK" with body, as a complete response that closes the connection.
    static QByteArray Response(const QByteArray& status, const QByteArray& body,
                               const QByteArray& extra = {}) {
        return "HTTP/1.1 " + status + "\r\nContent-Length: " + QByteArray::number(body.size()) +
               "\r\nConnection: close\r\n" + extra + "\r\n" + body;
    }
    QString url() const {
        return QStringLiteral("http://127.0.0.1:") + QString::number(server.serverPort());
    }

    QTcpServer server;
    QByteArray answer;
    QList<QByteArray> requests;
    QHash<QTcpSocket*, QByteArray> pending;
};

// Internet use on: the address looked up at `lookup`, home.example.org updated at `dyndns`.
inline void WriteInternetOptions(SettingsStore& s, const HttpStandIn& lookup,
                                 const HttpStandIn& dyndns) {
    for (const auto& [key, value] : {std::pair{u"Internet", QStringLiteral("1")},
                                     {u"IPCheckURL", lookup.url()},
                                     {u"DNS_Server", dyndns.url()},
                                     {u"DNS_Update", QStringLiteral("1")},
                                     {u"DNS_User", QStringLiteral("me")},
                                     {u"DNS_Pass", ScramblePassword(u"SET", u"Pa55word")},
                                     {u"DNS_Host", QStringLiteral("home.example.org")}})
        s.WriteIni(u"Options", QStringView(key), value);
}
