#include "mqtt/MqttConfig.h"

#include "core/Password.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"

#include <QCryptographicHash>
#include <QHostInfo>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

bool ParseMqttServer(QStringView text, QString* host, quint16* port, bool* tls) {
    QString s = text.trimmed().toString();
    *tls = false;
    if (s.startsWith(u"mqtts://", Qt::CaseInsensitive)) {
        *tls = true;
        s = s.mid(8);
    } else if (s.startsWith(u"mqtt://", Qt::CaseInsensitive)) {
        s = s.mid(7);
    }
    if (s.endsWith(u'/'))
        s.chop(1);
    *port = *tls ? 8883 : 1883;
    QString h = s;
    if (s.startsWith(u'[')) { // [v6]:port
        const qsizetype close = s.indexOf(u']');
        if (close < 0)
            return false;
        h = s.mid(1, close - 1);
        const QString rest = s.mid(close + 1);
        if (!rest.isEmpty()) {
            bool ok = false;
            const uint p = rest.startsWith(u':') ? rest.mid(1).toUInt(&ok) : 0;
            if (!ok || p == 0 || p > 65535)
                return false;
            *port = quint16(p);
        }
    } else if (s.count(u':') == 1) {
        bool ok = false;
        const uint p = s.section(u':', 1).toUInt(&ok);
        if (!ok || p == 0 || p > 65535)
            return false;
        *port = quint16(p);
        h = s.section(u':', 0, 0);
    }
    static const QRegularExpression hostChars(u"^[A-Za-z0-9._:-]+$"_s);
    if (h.isEmpty() || !hostChars.match(h).hasMatch())
        return false;
    *host = h;
    return true;
}

QString DeriveNodeId(const QString& hostName, const QString& folder) {
    QString base;
    for (QChar c : hostName.toLower())
        base += (c.isLetterOrNumber() && c.unicode() < 128) ? c : u'-';
    base = base.section(u'-', 0, -1, QString::SectionSkipEmpty).left(24);
    if (base.isEmpty())
        base = u"kestrava"_s;
    const QByteArray hash = QCryptographicHash::hash(folder.toUtf8(), QCryptographicHash::Sha1);
    return base + u'-' + QString::fromLatin1(hash.toHex().left(6));
}

MqttConfig ReadMqttConfig(SettingsStore& settings, const ProgramFolder& folder) {
    MqttConfig c;
    c.server = settings.Read(Key::MqttServer).trimmed();
    if (!c.server.isEmpty() && !ParseMqttServer(c.server, &c.host, &c.port, &c.tls))
        c.host.clear();
    c.caFile = settings.Read(Key::MqttCAFile);
    c.user = settings.Read(Key::MqttUser);
    c.password = ScramblePassword(u"RESET", settings.Read(Key::MqttPass));
    c.nodeId = settings.Read(Key::MqttNodeId).trimmed();
    static const QRegularExpression idChars(u"^[A-Za-z0-9_-]+$"_s);
    if (!idChars.match(c.nodeId).hasMatch()) {
        if (c.nodeId.isEmpty()) {
            c.nodeId = DeriveNodeId(QHostInfo::localHostName(), folder.root());
            // Only with MQTT on: the file of a program that never uses it stays as it was.
            if (c.enabled())
                settings.Write(Key::MqttNodeId, c.nodeId);
        } else {
            // Topics and discovery ids take letters, digits, '_' and '-' only.
            QString clean;
            for (QChar ch : c.nodeId)
                clean += (ch.isLetterOrNumber() && ch.unicode() < 128) || ch == u'_' ? ch : u'-';
            c.nodeId = clean;
        }
    }
    c.topic = settings.Read(Key::MqttTopic).trimmed();
    while (c.topic.endsWith(u'/'))
        c.topic.chop(1);
    // A topic with wildcards could not be subscribed to as ours.
    if (c.topic.isEmpty() || c.topic.contains(u'#') || c.topic.contains(u'+'))
        c.topic = u"kestrava/"_s + c.nodeId;
    c.discovery = settings.Read(Key::MqttDiscovery) != u"0";
    c.discoveryPrefix = settings.Read(Key::MqttDiscoveryPrefix).trimmed();
    if (c.discoveryPrefix.isEmpty() || c.discoveryPrefix.contains(u'#') ||
        c.discoveryPrefix.contains(u'+'))
        c.discoveryPrefix = u"homeassistant"_s;
    c.listen = settings.IsOn(Key::MqttListen);
    return c;
}
