#include "webserver/HostRule.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "webserver/FrontRequest.h"
#include "webserver/HttpRequest.h"

#include <QHostAddress>
#include <QLoggingCategory>
#include <QSysInfo>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcHost, "kestrava.web")

bool IsIPv4Literal(QStringView name) {
    const auto parts = name.split(u'.');
    if (parts.size() != 4)
        return false;
    for (QStringView part : parts) {
        if (part.isEmpty() || part.size() > 3)
            return false;
        for (QChar c : part)
            if (c < u'0' || c > u'9')
                return false;
        if (part.toInt() > 255)
            return false;
    }
    return true;
}

// A listed name matches whether it was written with a port, a dot or capitals.
bool Listed(const QString& name, const QString& list) {
    for (QStringView entry : QStringView(list).split(u','))
        if (const QString listed = HostRule::NameOf(entry); !listed.isEmpty() && listed == name)
            return true;
    return false;
}

} // namespace

QString HostRule::NameOf(QStringView host) {
    host = host.trimmed();
    if (host.startsWith(u'[')) {
        const qsizetype close = host.indexOf(u']');
        const QStringView rest = close < 0 ? QStringView() : host.sliced(close + 1);
        if (close < 0 || (!rest.isEmpty() && !rest.startsWith(u':')) ||
            QHostAddress(host.sliced(1, close - 1).toString()).protocol() !=
                QAbstractSocket::IPv6Protocol)
            return {};
        host = host.first(close + 1);
    } else {
        const qsizetype colon = host.indexOf(u':');
        if (colon >= 0) {
            for (QChar c : host.sliced(colon + 1))
                if (c < u'0' || c > u'9')
                    return {}; // a second colon (a bare IPv6 address) or no port
            host = host.first(colon);
        }
        if (host.endsWith(u'.'))
            host.chop(1);
        // Letters, digits, hyphens and dots: nothing a name on the network lacks.
        for (QChar c : host)
            if (!(c.isLetterOrNumber() && c.unicode() < 0x80) && c != u'-' && c != u'.' &&
                c != u'_')
                return {};
        if (host.isEmpty() || host.startsWith(u'.') || host.contains(u".."))
            return {};
    }
    return host.toString().toLower();
}

bool HostRule::Admits(const Http::Request& request) {
    return !request.hasHost || AdmitsHost(request.host);
}

bool HostRule::Admits(const FrontRequest& request) {
    for (const auto& [name, value] : request.headers)
        if (name == "host")
            return AdmitsHost(QString::fromUtf8(value));
    return true;
}

bool HostRule::AdmitsHost(QStringView host) {
    const QString name = NameOf(host);
    if (name.isEmpty())
        return false;
    if (name.startsWith(u'[') || IsIPv4Literal(name) || name == u"localhost")
        return true;
    const QString machine = QSysInfo::machineHostName().toLower();
    const QString shortName = machine.section(u'.', 0, 0);
    if (!machine.isEmpty() && (name == machine || name == shortName ||
                               name == shortName + u".local"_s || name == machine + u".local"_s))
        return true;
    bool ours = false;
    if (!settings_.Unreadable()) {
        SettingsStore::Batch batch(settings_);
        ours = Listed(name, settings_.Read(Key::DnsHost)) ||
               Listed(name, settings_.Read(Key::WebHosts));
    }
    if (!ours && name != lastRefused_) {
        lastRefused_ = name;
        qCWarning(lcHost).noquote()
            << "421 for requests naming" << name.left(100)
            << "- not a name of this server (add it to [WebServer] Hosts if it is)";
    }
    return ours;
}
