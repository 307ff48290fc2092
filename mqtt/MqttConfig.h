#pragma once

#include <QString>

class ProgramFolder;
class SettingsStore;

// The [MQTT] section as the client uses it.
struct MqttConfig {
    QString server; // as written, for the status
    QString host;   // empty: MQTT is off
    quint16 port = 1883;
    bool tls = false;
    QString caFile;
    QString user;
    QString password; // plain; never logged
    QString nodeId;
    QString topic; // no trailing slash
    bool discovery = true;
    QString discoveryPrefix = QStringLiteral("homeassistant");
    bool listen = false;

    bool enabled() const { return !host.isEmpty(); }
};

// "host", "host:port", "mqtt://host[:port]" or "mqtts://host[:port]" (8883 by
// default with TLS); false when it is none of them.
bool ParseMqttServer(QStringView text, QString* host, quint16* port, bool* tls);

// A node id from the host name and the program's folder: lower case letters,
// digits and '-', the same for the same folder on the same machine.
QString DeriveNodeId(const QString& hostName, const QString& folder);

// Reads [MQTT]; an empty NodeId is derived and written back once so that it
// stays when the host is renamed or the folder moves.
MqttConfig ReadMqttConfig(SettingsStore& settings, const ProgramFolder& folder);
