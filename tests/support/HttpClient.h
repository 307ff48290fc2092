#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>

#include "core/Wait.h"

// A TCP client that lets events run while it waits (the server is on the same thread).
class RawConnection {
public:
    // from: the client's own address (127.0.0.2 is another client on this machine).
    explicit RawConnection(quint16 port, const QHostAddress& host = QHostAddress::LocalHost,
                           const QHostAddress& from = {}) {
        if (!from.isNull())
            socket.bind(from);
        socket.connectToHost(host, port);
        if (socket.state() != QAbstractSocket::ConnectedState)
            WaitForSignal(&socket, &QTcpSocket::connected, 5000);
    }

    void send(const QByteArray& bytes) {
        socket.write(bytes);
        socket.flush();
    }

    // Everything the server sends until it closes the connection.
    QByteArray readAll(int timeoutMs = 5000) {
        QElapsedTimer timer;
        timer.start();
        while (socket.state() != QAbstractSocket::UnconnectedState && timer.elapsed() < timeoutMs) {
            received += socket.readAll();
            WaitForSignal(&socket, &QTcpSocket::readyRead, 50);
        }
        received += socket.readAll();
        return received;
    }

    QTcpSocket socket;
    QByteArray received;
};

inline QByteArray Fetch(quint16 port, const QByteArray& request,
                        const QHostAddress& host = QHostAddress::LocalHost,
                        const QHostAddress& from = {}) {
    RawConnection c(port, host, from);
    c.send(request);
    return c.readAll();
}

inline QByteArray BodyOf(const QByteArray& response) {
    qsizetype end = response.indexOf("\r\n\r\n");
    return end < 0 ? QByteArray() : response.mid(end + 4);
}

inline QByteArray HeadOf(const QByteArray& response) {
    qsizetype end = response.indexOf("\r\n\r\n");
    return end < 0 ? response : response.left(end + 4);
}

// One request to the JSON API, its body JSON unless extra names another type.
inline QByteArray ApiRequest(const QByteArray& method, const QByteArray& path,
                             const QByteArray& body = {}, QByteArray extra = {}) {
    if (!body.isEmpty() && !extra.contains("Content-Type:"))
        extra += "Content-Type: application/json\r\n";
    return method + ' ' + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + extra +
           "Content-Length: " + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" +
           body;
}
// Its whole answer.
inline QByteArray ApiCall(quint16 port, const QByteArray& method, const QByteArray& path,
                          const QByteArray& body = {}, const QByteArray& extra = {}) {
    return Fetch(port, ApiRequest(method, path, body, extra));
}
inline int ApiStatus(const QByteArray& answer) {
    return answer.mid(9, 3).toInt();
}
inline QJsonObject ApiJson(const QByteArray& answer) {
    return QJsonDocument::fromJson(BodyOf(answer)).object();
}
