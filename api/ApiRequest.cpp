#include "api/ApiRequest.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace Api {

namespace {

// A decimal id of at most four digits, no sign or leading blank; -1 otherwise.
int IdOf(const QString& text) {
    if (text.isEmpty() || text.size() > 4)
        return -1;
    for (QChar c : text)
        if (c < u'0' || c > u'9')
            return -1;
    return text.toInt();
}

Refusal Refuse(int status, const char* code, const QString& message) {
    return {status, code, message, {}};
}

// One row per endpoint and method that reads a body.
constexpr BodyFields Fields[] = {
    {Endpoint::Remotes, "POST", "name design"},
    {Endpoint::Remote, "PATCH", "name"},
    {Endpoint::Key, "PATCH", "name"},
    {Endpoint::KeyPress, "POST", "repeat"},
    {Endpoint::KeyHold, "POST", "action"},
    {Endpoint::KeyLearn, "POST", "name"},
    {Endpoint::KeyCode, "PUT", "code name"},
    {Endpoint::PressByName, "POST", "remote key repeat"},
    {Endpoint::Transmit, "POST", "timings modulation repeat_count"},
    {Endpoint::Reservations, "POST",
     "remote remoteId key keyId climateId state sceneId time repeat date days"},
    {Endpoint::Reservation, "PATCH", "time repeat date days"},
    {Endpoint::Climates, "POST", "name family state"},
    {Endpoint::ClimateState, "PUT", "power mode temp temperature fan swing"},
    {Endpoint::ClimateLearn, "POST", "name"},
    {Endpoint::ClimateImport, "POST", "name smartir"},
    {Endpoint::Scenes, "POST", "id name steps"},
    {Endpoint::Scene, "PUT", "id name steps"},
};

} // namespace

Refusal CheckBodyType(const QByteArray& method, const QByteArray& contentType,
                      const QByteArray& body) {
    if (method == "GET" || method == "HEAD" || (contentType.isEmpty() && body.isEmpty()))
        return {};
    // A form or text/plain is what another site's page can send without asking.
    const QByteArray type = contentType.split(';').first().trimmed().toLower();
    if (type == "application/json")
        return {};
    return Refuse(415, "unsupported_media_type",
                  u"本文は JSON で送ってください（Content-Type: application/json）。"_s);
}

QByteArray FieldsOf(Endpoint endpoint, const QByteArray& method) {
    for (const BodyFields& row : Fields)
        if (row.endpoint == endpoint && method == row.method)
            return row.fields;
    return {};
}

QByteArray AllowedMethods(Endpoint endpoint) {
    switch (endpoint) {
    case Endpoint::Status:
    case Endpoint::Events:
    case Endpoint::OpenApi:
        return "GET";
    case Endpoint::Remotes:
    case Endpoint::Reservations:
    case Endpoint::Climates:
    case Endpoint::Scenes:
        return "GET, POST";
    case Endpoint::Scene:
        return "GET, PUT, DELETE";
    case Endpoint::SceneRun:
        return "POST";
    case Endpoint::Climate:
        return "GET, DELETE";
    case Endpoint::ClimateState:
        return "GET, PUT";
    case Endpoint::ClimateLearn:
    case Endpoint::ClimateImport:
        return "POST";
    case Endpoint::Remote:
    case Endpoint::Key:
        return "GET, PATCH, DELETE";
    case Endpoint::Reservation:
        return "PATCH, DELETE";
    case Endpoint::KeyLearn:
        return "POST, DELETE";
    case Endpoint::KeyPress:
    case Endpoint::KeyHold:
    case Endpoint::PressByName:
    case Endpoint::Transmit:
        return "POST";
    case Endpoint::KeyCode:
        return "PUT";
    }
    return "GET";
}

Refusal ParseCall(const QByteArray& method, const QString& path, const QByteArray& body,
                  Call* call) {
    static const QString Base = u"/api/v1/"_s;
    if (!path.startsWith(Base))
        return Refuse(404, "not_found", u"そのような API はありません。"_s);
    QStringList parts = path.mid(Base.size()).split(u'/');
    if (!parts.isEmpty() && parts.last().isEmpty() && parts.size() > 1)
        parts.removeLast(); // a trailing slash
    Call c;
    c.method = method;
    bool found = true;
    const qsizetype n = parts.size();
    const QString first = parts.value(0);
    if (n == 1 && first == u"status")
        c.endpoint = Endpoint::Status;
    else if (n == 1 && first == u"remotes")
        c.endpoint = Endpoint::Remotes;
    else if (n == 1 && first == u"press")
        c.endpoint = Endpoint::PressByName;
    else if (n == 1 && first == u"transmit")
        c.endpoint = Endpoint::Transmit;
    else if (n == 1 && first == u"reservations")
        c.endpoint = Endpoint::Reservations;
    else if (n == 1 && first == u"events")
        c.endpoint = Endpoint::Events;
    else if (n == 1 && first == u"openapi.json")
        c.endpoint = Endpoint::OpenApi;
    else if (n == 1 && first == u"climates")
        c.endpoint = Endpoint::Climates;
    else if (n == 2 && first == u"climates" && (parts[1] == u"learn" || parts[1] == u"import"))
        c.endpoint = parts[1] == u"learn" ? Endpoint::ClimateLearn : Endpoint::ClimateImport;
    else if ((n == 2 || (n == 3 && parts[2] == u"state")) && first == u"climates") {
        c.endpoint = n == 2 ? Endpoint::Climate : Endpoint::ClimateState;
        c.climate = parts[1];
    } else if (n == 1 && first == u"scenes") {
        c.endpoint = Endpoint::Scenes;
    } else if (first == u"scenes" && (n == 2 || (n == 3 && parts[2] == u"run"))) {
        c.scene = IdOf(parts[1]);
        if (c.scene < 1 || c.scene > MaxSceneIdInPath)
            return Refuse(404, "not_found", u"シーンが見つかりません（番号は 1～100）。"_s);
        c.endpoint = n == 2 ? Endpoint::Scene : Endpoint::SceneRun;
    } else if (n == 2 && first == u"reservations") {
        c.endpoint = Endpoint::Reservation;
        c.reservation = parts[1];
    } else if (first == u"remotes" && (n == 2 || ((n == 4 || n == 5) && parts[2] == u"keys"))) {
        c.remote = IdOf(parts[1]);
        if (c.remote < 1 || c.remote > MaxRemoteIdInPath)
            return Refuse(404, "not_found", u"リモコンが見つかりません（番号は 1～1000）。"_s);
        c.endpoint = Endpoint::Remote;
        if (n >= 4) {
            c.key = IdOf(parts[3]);
            if (c.key < 0 || c.key > MaxKeyIdInPath)
                return Refuse(404, "not_found", u"キーが見つかりません。"_s);
            c.endpoint = Endpoint::Key;
        }
        if (n == 5) {
            if (parts[4] == u"press")
                c.endpoint = Endpoint::KeyPress;
            else if (parts[4] == u"hold")
                c.endpoint = Endpoint::KeyHold;
            else if (parts[4] == u"learn")
                c.endpoint = Endpoint::KeyLearn;
            else if (parts[4] == u"code")
                c.endpoint = Endpoint::KeyCode;
            else
                found = false;
        }
    } else {
        found = false;
    }
    if (!found)
        return Refuse(404, "not_found", u"そのような API はありません。"_s);

    const QByteArray allow = AllowedMethods(c.endpoint);
    bool allowed = false;
    for (const QByteArray& m : allow.split(','))
        allowed = allowed || m.trimmed() == method;
    if (!allowed) {
        Refusal r = Refuse(405, "method_not_allowed",
                           u"この API は %1 では使えません（%2 のみ）。"_s.arg(
                               QString::fromLatin1(method.left(20)), QString::fromLatin1(allow)));
        r.allow = allow;
        return r;
    }
    if (!body.trimmed().isEmpty()) {
        QJsonParseError error{};
        const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
        if (error.error != QJsonParseError::NoError)
            return Refuse(400, "bad_request",
                          u"JSON として読めません（%1 バイト目）。"_s.arg(error.offset));
        if (!doc.isObject())
            return Refuse(400, "bad_request", u"本文は JSON のオブジェクトにしてください。"_s);
        c.body = doc.object();
        const QList<QByteArray> known = FieldsOf(c.endpoint, method).split(' ');
        for (auto it = c.body.begin(); it != c.body.end(); ++it)
            if (it.key().isEmpty() || !known.contains(it.key().toUtf8())) {
                const QString list =
                    QString::fromLatin1(FieldsOf(c.endpoint, method)).replace(u' ', u"、"_s);
                return Refuse(
                    400, "bad_request",
                    list.isEmpty()
                        ? u"%1 は使えない項目です（この API は本文の項目を取りません）。"_s.arg(
                              it.key().left(40))
                        : u"%1 は使えない項目です（使えるのは %2）。"_s.arg(it.key().left(40),
                                                                            list));
            }
    }
    if (call)
        *call = std::move(c);
    return {};
}

} // namespace Api
