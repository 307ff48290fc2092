#include "tls/AcmeClient.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslConfiguration>

using namespace Qt::StringLiterals;

namespace {

constexpr int TransferTimeoutMs = 30000;

QByteArray compact(const QJsonObject& o) {
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

} // namespace

AcmeClient::AcmeClient(QObject* parent) : QObject(parent) {
    pollTimer_.setSingleShot(true);
}

void AcmeClient::Obtain(Job job) {
    Cancel();
    job_ = std::move(job);
    busy_ = true;
    looks_ = 0;
    send(job_.directory, "GET", {}, [this](const Answer& a) {
        const auto d = Acme::ParseDirectory(a.body);
        if (!d)
            return fail(u"the CA's directory is not an ACME directory"_s);
        if (job_.directory != accountFor_)
            accountUrl_.clear();
        directory_ = *d;
        accountUrl_.isEmpty() ? account() : order();
    });
}

void AcmeClient::Cancel() {
    ++generation_;
    pollTimer_.stop();
    pollTimer_.disconnect(this);
    closeChallenges();
    certKey_ = {};
    busy_ = false;
}

// Every exchange with the CA. A reply that belongs to an order given up
// since is dropped. With checked, an error answer ends the order with the
// CA's reason.
void AcmeClient::send(const QUrl& url, const QByteArray& verb, const QByteArray& body, Then then,
                      bool checked) {
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, QByteArray("kestrava/" KESTRAVA_VERSION));
    request.setTransferTimeout(TransferTimeoutMs);
    if (!job_.extraCa.isEmpty()) {
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.addCaCertificates(job_.extraCa);
        request.setSslConfiguration(tls);
    }
    if (verb == "POST") {
        request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArray("application/jose+json"));
        request.setRawHeader("Accept", "application/json, application/pem-certificate-chain");
    }
    QNetworkReply* reply = net_.sendCustomRequest(request, verb, body);
    const quint64 gen = generation_;
    connect(reply, &QNetworkReply::finished, this, [this, reply, gen, then, checked] {
        reply->deleteLater();
        if (gen != generation_)
            return;
        Answer a;
        a.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        a.body = reply->readAll();
        if (reply->hasRawHeader("Replay-Nonce"))
            nonce_ = reply->rawHeader("Replay-Nonce");
        if (reply->hasRawHeader("Location"))
            a.location = reply->url().resolved(QUrl::fromEncoded(reply->rawHeader("Location")));
        bool number = false;
        const int retry = reply->rawHeader("Retry-After").trimmed().toInt(&number);
        a.retryAfterS = number ? retry : -1;
        if (a.status == 0)
            return fail(u"the CA cannot be reached: "_s + reply->errorString());
        if (checked && a.status >= 400) {
            const auto p = Acme::ParseProblem(a.body);
            return fail(p ? p->text() : u"the CA answered HTTP "_s + QString::number(a.status));
        }
        then(a);
    });
}

// A signed request; no payload is a POST-as-GET. A nonce the CA turned down
// is replaced by the fresh one of its answer a few times.
void AcmeClient::post(const QUrl& url, const std::optional<QByteArray>& payload, Then then,
                      int nonceTries) {
    if (nonce_.isEmpty())
        return send(directory_.newNonce, "HEAD", {}, [=, this](const Answer&) {
            if (nonce_.isEmpty())
                return fail(u"the CA gave no nonce"_s);
            post(url, payload, then, nonceTries);
        });
    QJsonObject head{{u"alg"_s, u"ES256"_s},
                     {u"nonce"_s, QString::fromLatin1(nonce_)},
                     {u"url"_s, url.toString(QUrl::FullyEncoded)}};
    if (accountUrl_.isEmpty())
        head.insert(u"jwk"_s, QJsonDocument::fromJson(job_.accountKey.jwk()).object());
    else
        head.insert(u"kid"_s, accountUrl_.toString(QUrl::FullyEncoded));
    nonce_.clear();
    const QByteArray protectedPart = Acme::Base64Url(compact(head));
    const QByteArray payloadPart = payload ? Acme::Base64Url(*payload) : QByteArray();
    const QByteArray signature = job_.accountKey.signEs256(protectedPart + '.' + payloadPart);
    if (signature.isEmpty())
        return fail(u"the account key cannot sign"_s);
    const QByteArray body =
        compact({{u"protected"_s, QString::fromLatin1(protectedPart)},
                 {u"payload"_s, QString::fromLatin1(payloadPart)},
                 {u"signature"_s, QString::fromLatin1(Acme::Base64Url(signature))}});
    send(
        url, "POST", body,
        [=, this](const Answer& a) {
            if (a.status >= 400) {
                const auto p = Acme::ParseProblem(a.body);
                if (p && p->type.endsWith(u":badNonce") && nonceTries > 1)
                    return post(url, payload, then, nonceTries - 1);
                return fail(p ? p->text() : u"the CA answered HTTP "_s + QString::number(a.status));
            }
            then(a);
        },
        false);
}

void AcmeClient::account() {
    QJsonObject payload{{u"termsOfServiceAgreed"_s, true}};
    if (!job_.email.isEmpty())
        payload.insert(u"contact"_s, QJsonArray{u"mailto:"_s + job_.email});
    post(directory_.newAccount, compact(payload), [this](const Answer& a) {
        if (a.location.isEmpty())
            return fail(u"the CA named no account"_s);
        accountUrl_ = a.location;
        accountFor_ = job_.directory;
        order();
    });
}

void AcmeClient::order() {
    QJsonArray identifiers;
    for (const QString& name : job_.names)
        identifiers.append(QJsonObject{{u"type"_s, u"dns"_s}, {u"value"_s, name}});
    post(directory_.newOrder, compact({{u"identifiers"_s, identifiers}}), [this](const Answer& a) {
        const auto o = Acme::ParseOrder(a.body);
        if (!o || a.location.isEmpty())
            return fail(u"the CA's order cannot be read"_s);
        orderUrl_ = a.location;
        authorizations_ = o->authorizations;
        nextAuthorization();
    });
}

void AcmeClient::nextAuthorization() {
    if (authorizations_.isEmpty())
        return lookAtOrder();
    looks_ = 0;
    lookAtAuthorization(authorizations_.first());
}

void AcmeClient::lookAtAuthorization(const QUrl& url) {
    post(url, std::nullopt, [this, url](const Answer& a) {
        const auto authz = Acme::ParseAuthorization(a.body);
        if (!authz)
            return fail(u"the CA's authorization cannot be read"_s);
        const Acme::Challenge* ch = authz->http01();
        if (authz->status == u"valid") {
            authorizations_.removeFirst();
            return nextAuthorization();
        }
        if (authz->status != u"pending")
            return fail(
                authz->identifier + u": "_s +
                (ch && ch->error ? ch->error->text() : u"authorization "_s + authz->status));
        if (!ch)
            return fail(authz->identifier + u": the CA offers no HTTP challenge"_s);
        if (ch->status != u"pending" || openTokens_.contains(ch->token))
            return later(
                a, [this, url] { lookAtAuthorization(url); }, authz->identifier);
        // The answer is served before the CA is told to look for it.
        openTokens_ << ch->token;
        emit challengeOpened(ch->token, ch->token.toLatin1() + '.' + job_.accountKey.thumbprint());
        post(ch->url, QByteArray("{}"), [this, url](const Answer& b) {
            later(
                b, [this, url] { lookAtAuthorization(url); }, url.toString());
        });
    });
}

void AcmeClient::later(const Answer& a, std::function<void()> look, const QString& what) {
    if (++looks_ > maxLooks_)
        return fail(what + u": the CA did not decide in time"_s);
    pollTimer_.disconnect(this);
    connect(&pollTimer_, &QTimer::timeout, this, look);
    pollTimer_.start(a.retryAfterS >= 0 ? qMin(a.retryAfterS, 60) * 1000 : pollMs_);
}

void AcmeClient::lookAtOrder() {
    post(orderUrl_, std::nullopt, [this](const Answer& a) {
        const auto o = Acme::ParseOrder(a.body);
        if (!o)
            return fail(u"the CA's order cannot be read"_s);
        if (o->status == u"ready" && certKey_.isNull())
            return finalize(*o);
        if (o->status == u"valid" && !o->certificate.isEmpty())
            return download(o->certificate);
        if (o->status == u"pending" || o->status == u"processing" || o->status == u"ready")
            return later(
                a, [this] { lookAtOrder(); }, u"the order"_s);
        fail(o->error ? o->error->text() : u"the order is "_s + o->status);
    });
}

void AcmeClient::finalize(const Acme::Order& o) {
    // Every name is checked: the answers (and port 80) are needed no more.
    closeChallenges();
    certKey_ = Acme::PrivateKey::GenerateP256();
    const QByteArray csr = certKey_.csr(job_.names);
    if (csr.isEmpty())
        return fail(u"no certificate request could be made"_s);
    looks_ = 0;
    post(o.finalize, compact({{u"csr"_s, QString::fromLatin1(Acme::Base64Url(csr))}}),
         [this](const Answer&) { lookAtOrder(); });
}

void AcmeClient::download(const QUrl& url) {
    post(url, std::nullopt, [this](const Answer& a) {
        if (!a.body.contains("-----BEGIN CERTIFICATE-----") || !certKey_.matches(a.body))
            return fail(u"the CA's certificate does not fit the request"_s);
        const QByteArray key = certKey_.pkcs8Pem();
        busy_ = false;
        ++generation_;
        certKey_ = {};
        emit issued(a.body, key);
    });
}

void AcmeClient::closeChallenges() {
    const QStringList tokens = std::exchange(openTokens_, {});
    for (const QString& token : tokens)
        emit challengeClosed(token);
}

void AcmeClient::fail(const QString& reason) {
    ++generation_;
    pollTimer_.stop();
    closeChallenges();
    busy_ = false;
    certKey_ = {};
    emit failed(reason);
}
