#include "core/NetAddress.h"

#include <QHostAddress>
#include <QNetworkInterface>
#include <QString>

bool IsPrivateAddress(const QHostAddress& address) {
    bool isV4 = false;
    quint32 v4 = address.toIPv4Address(&isV4); // also unwraps ::ffff:a.b.c.d
    if (isV4) {
        auto in = [v4](quint32 net, int bits) {
            return (v4 >> (32 - bits)) == (net >> (32 - bits));
        };
        return in(0x0A000000, 8) || in(0xAC100000, 12) || in(0xC0A80000, 16) || in(0x7F000000, 8) ||
               in(0xA9FE0000, 16);
    }
    if (address.protocol() != QAbstractSocket::IPv6Protocol)
        return false;
    Q_IPV6ADDR a = address.toIPv6Address();
    if (address == QHostAddress(QHostAddress::LocalHostIPv6))
        return true;
    return (a[0] & 0xFE) == 0xFC                       // fc00::/7
           || (a[0] == 0xFE && (a[1] & 0xC0) == 0x80); // fe80::/10
}

namespace {
QHostAddress firstPrivateIPv4() {
    for (const QNetworkInterface& iface : QNetworkInterface::allInterfaces()) {
        const auto flags = iface.flags();
        if (!(flags & QNetworkInterface::IsUp) || (flags & QNetworkInterface::IsLoopBack))
            continue;
        for (const QNetworkAddressEntry& entry : iface.addressEntries()) {
            const QHostAddress a = entry.ip();
            if (a.protocol() == QAbstractSocket::IPv4Protocol && IsPrivateAddress(a))
                return a;
        }
    }
    return {};
}
} // namespace

QHostAddress LocalAddress() {
    const QHostAddress a = firstPrivateIPv4();
    return a.isNull() ? QHostAddress(QHostAddress::LocalHost) : a;
}

QString GetPrivateIP() {
    const QHostAddress a = firstPrivateIPv4();
    return a.isNull() ? QStringLiteral("Failed") : a.toString();
}

QString LocalUrl(quint16 port) {
    QString url = QStringLiteral("http://") + LocalAddress().toString();
    if (port != 80)
        url += u':' + QString::number(port);
    return url;
}
