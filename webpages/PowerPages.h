#pragma once

#include <QString>

#include <functional>

class Dispatcher;
class Power;
class SettingsStore;

QString ConfirmPage(); // confirm.asp
// hibern.asp: how to wake the machine from outside. An empty address is
// shown as unknown, with a warning.
QString HibernPage(const QString& globalAddr, const QString& mac, const QString& wakeLink);

// Routes confirm.asp, and hibern.asp, which also arms the delayed sleep when
// Options/PowerControl is "1". The MAC address comes from the interfaces under
// netDir and the routes in routeFile.
// globalAddr gives the address the watch found last.
void InstallPowerPages(Dispatcher& dispatcher, SettingsStore& settings, Power& power,
                       std::function<QString()> globalAddr,
                       const QString& netDir = QStringLiteral("/sys/class/net"),
                       const QString& routeFile = QStringLiteral("/proc/net/route"));
