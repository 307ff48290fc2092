#pragma once

#include "core/Settings.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "remotes/Registry.h"

#include <QDir>
#include <QFile>

// A home for the real program: the simulator, any web port, remote 1 "TV" of Power and "Vol Up".
inline QString MakeSimHome(const QString& dir) {
    QDir().mkpath(dir + QStringLiteral("/IRSignals"));
    SettingsStore s(dir + QStringLiteral("/setting.ini"));
    s.WriteIni(u"Tira", u"Device", u"sim");
    s.WriteIni(u"WebServer", u"Port", u"0");
    s.WriteIni(RemoteSection(1), u"Device", u"TV");
    s.WriteIni(RemoteSection(1), u"Design", u"4");
    const QStringList keys{QStringLiteral("Power"), QStringLiteral("Vol Up")};
    for (int k = 0; k < keys.size(); ++k) {
        s.WriteIni(RemoteSection(1), ButtonKey(k), keys[k]);
        WriteSignalFile(dir + QStringLiteral("/IRSignals/TV-") + keys[k] + QStringLiteral(".bin"),
                        SimDriver::NecSignal(0x40, uint8_t(k)));
    }
    return dir;
}

// The simulator's sends so far, a line each.
inline QStringList SimLog(const QString& dir) {
    QFile f(dir + QStringLiteral("/sim-transmit.log"));
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLatin1(f.readAll()).split(u'\n', Qt::SkipEmptyParts);
}

// Frames for the simulator to hear, as lines like "nec:0x4001".
inline bool SimHear(const QString& dir, const QByteArray& lines) {
    QFile f(dir + QStringLiteral("/sim-receive.tmp"));
    if (!f.open(QIODevice::WriteOnly) || f.write(lines) != lines.size())
        return false;
    f.close();
    return f.rename(dir + QStringLiteral("/sim-receive"));
}
