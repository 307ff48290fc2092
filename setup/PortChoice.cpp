#include "setup/PortChoice.h"

#include "core/Settings.h"

#include <QLoggingCategory>
#include <QTcpServer>

namespace {
Q_LOGGING_CATEGORY(lcSetup, "kestrava.setup")

bool canListen(quint16 port) {
    QTcpServer probe;
    return probe.listen(QHostAddress::Any, port) || probe.listen(QHostAddress::AnyIPv4, port);
}
} // namespace

QList<quint16> FreeWebPorts(SettingsStore& settings) {
    const QString streaming = settings.ReadIni(u"Streaming", u"Port");
    QList<quint16> ports;
    for (quint16 port = 8080; port <= 8179; ++port) {
        if (!streaming.isEmpty() && Val(streaming) == port)
            continue;
        if (canListen(port))
            ports << port;
    }
    return ports;
}

std::optional<quint16> FirstFreeWebPort(SettingsStore& settings, const QList<quint16>& skip) {
    for (quint16 port : FreeWebPorts(settings))
        if (!skip.contains(port))
            return port;
    qCWarning(lcSetup) << "no free port between 8080 and 8179";
    return std::nullopt;
}
