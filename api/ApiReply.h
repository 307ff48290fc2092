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

inline void error(const FrontReply& r, int status, const char* code, const QString& message,
                  const QByteArray& headers = {}) {
    json(r, status,
         {{QStringLiteral("error"), QLatin1StringView(code)}, {QStringLiteral("message"), message}},
         headers);
}

} // namespace Api
