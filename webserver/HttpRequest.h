#pragma once

#include <QByteArray>
#include <QString>

// What the server reads from a request and the fixed texts it answers with.
// The server does not parse headers into a table: it searches the request text
// for the few words it needs, and clients rely on exactly those searches. The
// host is the exception: it comes from the Host line alone.

struct WebLogin;

namespace Http {

constexpr qsizetype MaxHeaderBytes = 16 * 1024;
constexpr qsizetype MaxBodyBytes = 1024 * 1024;

enum class Frame { Incomplete, Complete, TooLarge, Malformed };

// A request is complete at the end of its header plus exactly Content-Length
// bytes of body. length receives the request's size when complete.
Frame CheckFrame(const QByteArray& data, qsizetype* length);

// The realm a refused login names: always this, never what the client sent.
inline constexpr char Realm[] = "Kestrava";

struct Request {
    QString text;         // the whole request, decoded from CP932
    QString host;         // value of the first Host line, "" without one
    bool hasHost = false; // a Host line came, even one whose value is unusable
    bool hasAuthorization = false;
    QString user, password; // from Basic credentials
    QString path;           // with its query; "" for methods other than GET and POST
    QString postBody;       // body of a POST, "" otherwise
};

Request ParseRequest(const QString& text);

// Whether the browser says the request comes from a page of another site:
// Sec-Fetch-Site: cross-site, or an Origin or Referer whose host is not the
// Host's. Ports are not compared (a proxy in front may change them); an Origin
// or Referer without a host ("null") counts as another site. A request without
// these headers comes from nowhere in particular.
bool FromAnotherSite(const Request& r);

enum class Route { Page, Redirect, File };

// redirectArmed: a redirect went out less than 5 seconds ago; dotless paths
// are then pages. A name with a dot under /help/ is a file.
Route ClassifyPath(const QString& path, bool redirectArmed);

// Everything the server decides from the bytes received so far: wait for
// more, drop the connection, refuse the login, or answer with a page, a
// redirect or a file. A function of its inputs alone, so it can be fuzzed.
// The server itself may turn a decision into Misdirected (a Host not ours) or
// TooMany (logins held up for a while).
enum class Action { Wait, Drop, Refuse, Page, Redirect, File, Misdirected, TooMany };
struct Decision {
    Action action = Action::Wait;
    qsizetype length = 0; // bytes of the request when complete
    int retryAfter = 0;   // seconds, for TooMany
    Request request;
};
// state: whether a login is required, and which.
Decision Decide(const QByteArray& received, bool redirectArmed, const WebLogin& state);

QByteArray PageResponse(const QString& html, const QString& date);
QByteArray RedirectResponse(const QString& host);
QByteArray AccessDeniedResponse(const QString& body, const QString& date);
QByteArray FileNotFoundResponse(const QString& date);
QByteArray ForbiddenResponse(const QString& date);
QByteArray MisdirectedResponse(const QString& date);
QByteArray TooManyResponse(int retryAfter, const QString& date);
// The head of a file's answer from byte start on (200 from the first byte,
// 206 from any other); typeLines end in CRLF.
QByteArray FileResponseHead(qint64 size, qint64 start, const QString& typeLines,
                            const QString& date);
QByteArray RangeNotSatisfiableResponse(qint64 size, const QString& date);

} // namespace Http
