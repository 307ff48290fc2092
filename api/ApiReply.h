#pragma once

#include "webserver/WebServer.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

// The answers every resource of the API gives: a JSON object, or an error
// with its code and a message for people.
namespace Api {

inline const QByteArray JsonType = "application/json; charset=utf-8";

inline void json(const FrontReply& r, int status, const QJsonObject& body,
                 const QByteArray& headers = {}) {
    r.Send(status, JsonType, QJsonDocument(body).toJson(QJsonDocument::Compact), headers);
}

// A body made already (the list of remotes, the API's description).
inline void raw(const FrontReply& r, int status, const QByteArray& body) {
    r.Send(status, JsonType, body);
}

inline void none(const FrontReply& r) {
    r.Send(204, {}, {});
}

inline QByteArray errorBody(const char* code, const QString& message) {
    return QJsonDocument(QJsonObject{{QStringLiteral("error"), QLatin1StringView(code)},
                                     {QStringLiteral("message"), message}})
        .toJson(QJsonDocument::Compact);
}

inline void error(const FrontReply& r, int status, const char* code, const QString& message,
                  const QByteArray& headers = {}) {
    r.Send(status, JsonType, errorBody(code, message), headers);
}

inline void bad(const FrontReply& r, const QString& message) {
    error(r, 400, "bad_request", message);
}

inline void notFound(const FrontReply& r, const QString& message) {
    error(r, 404, "not_found", message);
}

inline const QString NoRemoteText = QStringLiteral("リモコンが見つかりません。");
inline const QString NoKeyText = QStringLiteral("キーが見つかりません。");
inline const QString NotLearnedText = QStringLiteral("このキーはまだ学習されていません。");

} // namespace Api
