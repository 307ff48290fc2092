#pragma once

#include <QList>

class SettingsStore;

// Ports offered for the web server: 8080 to 8179 that can be listened on now,
// leaving out Streaming/Port, which belongs to another service of the owner.
QList<quint16> FreeWebPorts(SettingsStore& settings);

// Takes the first free web port, stores it as WebServer/Port and returns true;
// false when none is free. For a start without anyone to ask.
bool ChooseFreeWebPort(SettingsStore& settings);
