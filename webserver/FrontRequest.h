#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

// A request for a front other than the classic pages (the JSON API, the phone
// page): read as bytes, its text as UTF-8, with its headers in a table. The
// classic pages keep their own reading in HttpRequest.

struct FrontRequest {
    QByteArray method;                            // as sent, upper case expected
    QString path;                                 // percent-decoded, without the query
    QString query;                                // after "?", not decoded
    QList<QPair<QByteArray, QByteArray>> headers; // names in lower case
    QByteArray body;
    bool keepAlive = false; // HTTP/1.1 without "Connection: close"
    QString user, password; // Basic credentials, "" without
    bool hasAuthorization = false;
    QString peer; // filled in by the server

    // The first header of that (lower-case) name, "" when none.
    QByteArray header(QByteArrayView name) const;
};

enum class FrontFrame { Incomplete, Complete, BodyTooLarge, HeadTooLarge, Malformed };

// The request at the start of data: Complete (with its length in bytes) once
// its head and Content-Length bytes of body are there. A body over maxBody is
// BodyTooLarge as soon as the head says so; chunked bodies are Malformed.
FrontFrame ReadFrontRequest(const QByteArray& data, qsizetype maxBody, FrontRequest* request,
                            qsizetype* length);

// The path of the request line when the line is complete, "" otherwise.
QByteArray RequestLinePath(QByteArrayView data);

// Whether a browser says the request comes from a page of another site:
// Sec-Fetch-Site: cross-site, or an Origin whose host is not the Host's.
bool FrontCrossSite(const FrontRequest& request);

// "OK", "Not Found", ... for a status.
QByteArray StatusText(int status);
