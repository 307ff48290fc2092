#include "reachability/DynDns.h"

#include "core/AtomicFile.h"
#include "core/Clock.h"
#include "core/Password.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"

#include <QFile>
#include <QLocale>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QTimer>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcDns, "kestrava.dns")

// A lookup page or a status line is a few hundred bytes; anything far larger
// is not one, and is not kept in memory.
constexpr qint64 MaxAnswerBytes = 64 * 1024;

QString setting(SettingsStore& settings, const SettingKey& key, const QString& fallback) {
    QString value = settings.Read(key).trimmed();
    return value.isEmpty() ? fallback : value;
}
} // namespace

const QString DnsService::DefaultIPCheckURL = u"http://checkip.dyndns.org/"_s;
const QString DnsService::DefaultDNSServer = u"https://members.dyndns.org"_s;

DnsService::DnsService(SettingsStore& settings, QObject* parent)
    : QObject(parent), settings_(settings), net_(new QNetworkAccessManager(this)) {}

void DnsService::get(QNetworkRequest request,
                     std::function<void(QNetworkReply*, const QByteArray&)> done) {
    request.setMaximumRedirectsAllowed(5);
    request.setHeader(QNetworkRequest::UserAgentHeader, u"Kestrava/" KESTRAVA_VERSION ""_s);
    QNetworkReply* reply = net_->get(request);
    auto tooLarge = std::make_shared<bool>(false);
    connect(reply, &QNetworkReply::downloadProgress, reply, [reply, tooLarge](qint64 received) {
        if (received > MaxAnswerBytes && !*tooLarge) {
            *tooLarge = true;
            reply->abort();
        }
    });
    // One bound for the whole conversation, however slowly it trickles.
    QTimer::singleShot(timeoutMs, reply, &QNetworkReply::abort);
    connect(reply, &QNetworkReply::finished, this, [reply, tooLarge, done = std::move(done)] {
        reply->deleteLater();
        done(reply, *tooLarge || !reply->isOpen() ? QByteArray() : reply->read(MaxAnswerBytes));
    });
}

namespace {
// Transport failures in our own words: Qt's texts can carry the URL.
QString failure(QNetworkReply* reply) {
    int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status >= 300)
        return u"Error: HTTP "_s + QString::number(status);
    switch (reply->error()) {
    case QNetworkReply::OperationCanceledError:
        return u"Error: no answer in time or answer too large"_s;
    case QNetworkReply::TooManyRedirectsError:
        return u"Error: too many redirects"_s;
    case QNetworkReply::ConnectionRefusedError:
        return u"Error: connection refused"_s;
    case QNetworkReply::HostNotFoundError:
        return u"Error: host not found"_s;
    default:
        return u"Error: network error "_s + QString::number(int(reply->error()));
    }
}
} // namespace

QString DnsService::FirstIPv4(QByteArrayView text) {
    static const QRegularExpression dotted(
        uR"((?<![0-9.])(\d{1,3})\.(\d{1,3})\.(\d{1,3})\.(\d{1,3})(?![0-9]|\.[0-9]))"_s);
    const QString s = QString::fromLatin1(text);
    for (auto it = dotted.globalMatch(s); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        bool ok = true;
        for (int i = 1; i <= 4; ++i)
            ok = ok && m.captured(i).toInt() <= 255;
        if (ok)
            return m.captured(0);
    }
    return {};
}

void DnsService::GetIPAddr(std::function<void(const QString&)> done) {
    const QUrl url(setting(settings_, Key::IPCheckURL, DefaultIPCheckURL));
    qCDebug(lcDns).noquote() << "lookup GET" << url.toString();
    get(QNetworkRequest(url),
        [done = std::move(done)](QNetworkReply* reply, const QByteArray& body) {
            QString result;
            if (reply->error() != QNetworkReply::NoError)
                result = failure(reply);
            else if ((result = FirstIPv4(body)).isEmpty())
                result = u"Error: no address in the answer"_s;
            qCDebug(lcDns).noquote() << "lookup:" << result;
            done(result);
        });
}

void DnsService::UpdateNow(const QString& user, const QString& password, const QString& host,
                           const QString& address, std::function<void(const QString&)> done) {
    QString base = setting(settings_, Key::DnsServer, DefaultDNSServer);
    while (base.endsWith(u'/'))
        base.chop(1);
    QUrl url(base + u"/nic/update"_s);
    QUrlQuery query;
    query.addQueryItem(u"hostname"_s, host);
    query.addQueryItem(u"myip"_s, address);
    url.setQuery(query);
    QNetworkRequest request(url);
    request.setRawHeader("Authorization", "Basic " + (user + u':' + password).toUtf8().toBase64());
    qCDebug(lcDns).noquote() << "update GET" << url.toString(QUrl::RemoveUserInfo) << "as" << user
                             << "(password ****)";
    get(request, [done = std::move(done)](QNetworkReply* reply, const QByteArray& body) {
        // The status word comes with 200, and with 401 for badauth on some services.
        QString answer = QString::fromUtf8(body.left(1024)).section(u'\n', 0, 0).trimmed();
        if (answer.isEmpty())
            answer = reply->error() != QNetworkReply::NoError ? failure(reply)
                                                              : u"Error: empty answer"_s;
        qCDebug(lcDns).noquote() << "update:" << answer;
        done(answer);
    });
}

DynDns::DynDns(SettingsStore& settings, const Clock& clock, QString logPath, DnsService& service,
               QObject* parent)
    : QObject(parent), settings_(settings), clock_(clock), logPath_(std::move(logPath)),
      service_(service) {}

QString DynDns::Url(const QString& host, const QString& portText) {
    return u"http://"_s + host + (portText == u"80" ? QString() : u':' + portText);
}

bool DynDns::AcceptedByWatch(const QString& answer) {
    const QString a = answer.toUpper();
    return a.contains(u"GOOD") || a.contains(u"NOCHG");
}

bool DynDns::AcceptedBySetup(const QString& answer) {
    const QString a = answer.toUpper();
    return a.contains(u"GOOD") || a.contains(u"SUCCESS");
}

void DynDns::remember(const QString& address) {
    settings_.Write(Key::DnsLastIP, address);
    settings_.Write(Key::DnsLastUpdated, clock_.now().date().toString(u"yyyy/MM/dd"_s));
}

void DynDns::appendLog(const QString& answer) {
    QFile file(logPath_);
    QByteArray bytes;
    if (file.exists()) {
        // Never replace a log that could not be read by one line.
        if (!file.open(QIODevice::ReadOnly)) {
            qCWarning(lcDns) << "cannot read" << logPath_;
            return;
        }
        bytes = file.readAll();
        file.close();
    }
    bytes += QLocale::system().toString(clock_.now(), QLocale::ShortFormat).toUtf8() + '\t' +
             answer.toUtf8() + "\r\n";
    QString error;
    if (!WriteFileAtomically(logPath_, bytes, 0644, &error))
        qCWarning(lcDns).noquote() << "cannot write" << logPath_ << error;
}

void DynDns::WatchStep(const QString& address, std::function<void(const QString&)> done) {
    const QString port = settings_.Read(Key::WebPort);
    const QString host = settings_.Read(Key::DnsHost);
    auto held = [this, host, port, done] {
        emit urlShown(Url(host, port));
        done(host);
    };
    if (settings_.Read(Key::DnsLastIP) == address) {
        const QString last = settings_.Read(Key::DnsLastUpdated);
        if (last.isEmpty())
            return held();
        // A date that cannot be read is refreshed rather than trusted.
        const QDate date = QDate::fromString(last, u"yyyy/MM/dd"_s);
        if (date.isValid() && date.daysTo(clock_.now().date()) < RefreshDays)
            return held();
    }
    const QString user = settings_.Read(Key::DnsUser);
    const QString pass = ScramblePassword(u"RESET", settings_.Read(Key::DnsPass));
    service_.UpdateNow(user, pass, host, address,
                       [this, address, port, held, done](const QString& answer) {
                           appendLog(answer);
                           if (AcceptedByWatch(answer)) {
                               remember(address);
                               return held();
                           }
                           emit urlShown(Url(address, port));
                           done(address);
                       });
}

void DynDns::UpdateFromSetup(const QString& user, const QString& password, const QString& host,
                             const QString& portText,
                             std::function<void(const ManualResult&)> done) {
    service_.GetIPAddr([=, this](const QString& address) {
        if (address.isEmpty() || address.contains(u"Error"))
            return done({ManualResult::LookupFailed, {}, {}});
        service_.UpdateNow(user, password, host, address, [=, this](const QString& answer) {
            appendLog(answer);
            const bool accepted = AcceptedBySetup(answer);
            if (accepted)
                remember(address);
            const QString url = Url(accepted ? host : address, portText);
            emit urlShown(url);
            done({accepted ? ManualResult::Accepted : ManualResult::Refused, answer, url});
        });
    });
}
