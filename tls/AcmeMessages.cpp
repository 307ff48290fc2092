#include "tls/AcmeMessages.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace Acme {

namespace {

std::optional<QJsonObject> object(QByteArrayView json) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(json.toByteArray(), &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    return doc.object();
}

// An HTTPS URL, or an empty one when the value is anything else.
QUrl httpsUrl(const QJsonValue& v) {
    const QUrl url(v.toString(), QUrl::StrictMode);
    return url.isValid() && url.scheme() == u"https" && !url.host().isEmpty() ? url : QUrl();
}

std::optional<Problem> problem(const QJsonValue& v) {
    if (!v.isObject())
        return std::nullopt;
    const QJsonObject o = v.toObject();
    Problem p{o.value(u"type"_s).toString(), o.value(u"detail"_s).toString(), {}};
    for (const QJsonValue& sub : o.value(u"subproblems"_s).toArray()) {
        const QJsonObject s = sub.toObject();
        const QString value = s.value(u"identifier"_s).toObject().value(u"value"_s).toString();
        const QString detail = s.value(u"detail"_s).toString();
        if (!detail.isEmpty())
            p.subproblems << (value.isEmpty() ? detail : value + u": "_s + detail);
    }
    if (p.type.isEmpty() && p.detail.isEmpty())
        return std::nullopt;
    return p;
}

} // namespace

QString Problem::text() const {
    QString out = detail.isEmpty() ? u"no detail"_s : detail;
    for (const QString& s : subproblems)
        out += u"; "_s + s;
    const QString kind = type.section(u':', -1);
    if (!kind.isEmpty())
        out += u" ("_s + kind + u')';
    return out;
}

const Challenge* Authorization::http01() const {
    for (const Challenge& c : challenges)
        if (c.type == u"http-01")
            return &c;
    return nullptr;
}

bool IsToken(QStringView token) {
    if (token.isEmpty() || token.size() > 256)
        return false;
    for (QChar c : token)
        if (!(c.isLetterOrNumber() && c.unicode() < 128) && c != u'-' && c != u'_')
            return false;
    return true;
}

std::optional<Directory> ParseDirectory(QByteArrayView json) {
    const auto o = object(json);
    if (!o)
        return std::nullopt;
    Directory d{httpsUrl(o->value(u"newNonce"_s)), httpsUrl(o->value(u"newAccount"_s)),
                httpsUrl(o->value(u"newOrder"_s))};
    if (d.newNonce.isEmpty() || d.newAccount.isEmpty() || d.newOrder.isEmpty())
        return std::nullopt;
    return d;
}

std::optional<Problem> ParseProblem(QByteArrayView json) {
    const auto o = object(json);
    return o ? problem(*o) : std::nullopt;
}

std::optional<Authorization> ParseAuthorization(QByteArrayView json) {
    const auto o = object(json);
    if (!o)
        return std::nullopt;
    Authorization a{o->value(u"status"_s).toString(),
                    o->value(u"identifier"_s).toObject().value(u"value"_s).toString(),
                    {}};
    for (const QJsonValue& v : o->value(u"challenges"_s).toArray()) {
        const QJsonObject c = v.toObject();
        Challenge ch{c.value(u"type"_s).toString(), c.value(u"status"_s).toString(),
                     c.value(u"token"_s).toString(), httpsUrl(c.value(u"url"_s)),
                     problem(c.value(u"error"_s))};
        // One the client could not answer safely is as good as absent.
        if (ch.url.isEmpty() || (ch.type == u"http-01" && !IsToken(ch.token)))
            continue;
        a.challenges << ch;
    }
    if (a.status.isEmpty())
        return std::nullopt;
    return a;
}

std::optional<Order> ParseOrder(QByteArrayView json) {
    const auto o = object(json);
    if (!o)
        return std::nullopt;
    Order order{o->value(u"status"_s).toString(),
                {},
                httpsUrl(o->value(u"finalize"_s)),
                httpsUrl(o->value(u"certificate"_s)),
                problem(o->value(u"error"_s))};
    for (const QJsonValue& v : o->value(u"authorizations"_s).toArray()) {
        const QUrl url = httpsUrl(v);
        if (url.isEmpty())
            return std::nullopt;
        order.authorizations << url;
    }
    if (order.status.isEmpty() || order.finalize.isEmpty())
        return std::nullopt;
    return order;
}

} // namespace Acme
