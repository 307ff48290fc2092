#include "setup/PortChoice.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"

#include <QLoggingCategory>
#include <QTcpServer>

namespace {
Q_LOGGING_CATEGORY(lcSetup, "kestrava.setup")

QList<quint16> freeOf(SettingsStore& settings, const QList<quint16>& candidates) {
    const QString streaming = settings.Read(Key::StreamingPort);
    QList<quint16> ports;
    for (quint16 port : candidates) {
        if (!streaming.isEmpty() && Val(streaming) == port)
            continue;
        if (CanListen(port))
            ports << port;
    }
    return ports;
}

QList<quint16> range(quint16 first, quint16 last) {
    QList<quint16> ports;
    for (quint16 port = first; port <= last; ++port)
        ports << port;
    return ports;
}
} // namespace

bool CanListen(quint16 port) {
    QTcpServer probe;
    return probe.listen(QHostAddress::Any, port) || probe.listen(QHostAddress::AnyIPv4, port);
}

QList<quint16> FreeWebPorts(SettingsStore& settings) {
    return freeOf(settings, range(8080, 8179));
}

QList<quint16> SpecifyPortCandidates(SettingsStore& settings) {
    return freeOf(settings, QList<quint16>{80} + range(8080, 8178));
}

std::optional<quint16> FirstFreeWebPort(SettingsStore& settings, const QList<quint16>& skip) {
    for (quint16 port : FreeWebPorts(settings))
        if (!skip.contains(port))
            return port;
    qCWarning(lcSetup) << "no free port between 8080 and 8179";
    return std::nullopt;
}
