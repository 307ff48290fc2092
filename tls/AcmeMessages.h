#pragma once

#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

// The JSON a certificate authority answers with (RFC 8555), read from any
// bytes. Every URL must be HTTPS: the client signs and sends to it.
namespace Acme {

struct Directory {
    QUrl newNonce, newAccount, newOrder;
};

// A problem document (RFC 7807) with the CA's subproblems.
struct Problem {
    QString type;   // "urn:ietf:params:acme:error:rejectedIdentifier"
    QString detail; // the CA's words
    QStringList subproblems;
    // For a log line: the detail, the subproblems, and the type's last word.
    QString text() const;
};

struct Challenge {
    QString type, status, token;
    QUrl url;
    std::optional<Problem> error;
};

struct Authorization {
    QString status, identifier;
    QList<Challenge> challenges;
    // The first http-01 challenge; null when there is none.
    const Challenge* http01() const;
};

struct Order {
    QString status;
    QList<QUrl> authorizations;
    QUrl finalize, certificate; // certificate only once valid
    std::optional<Problem> error;
};

std::optional<Directory> ParseDirectory(QByteArrayView json);
std::optional<Problem> ParseProblem(QByteArrayView json);
std::optional<Authorization> ParseAuthorization(QByteArrayView json);
std::optional<Order> ParseOrder(QByteArrayView json);

// A token may end up in a path and a file name: base64url only, 1-256 characters.
bool IsToken(QStringView token);

} // namespace Acme
