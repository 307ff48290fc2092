#pragma once

#include <QList>

#include <optional>

class SettingsStore;

// Whether the web server could listen on port now, on all addresses.
bool CanListen(quint16 port);

// Ports offered for the web server: 8080 to 8179 that can be listened on now,
// leaving out Streaming/Port, which belongs to another service of the owner.
QList<quint16> FreeWebPorts(SettingsStore& settings);

// The port dialog's list: 80, then 8080 to 8178, as free now, without
// Streaming/Port.
QList<quint16> SpecifyPortCandidates(SettingsStore& settings);

// The first free web port not in skip; nothing (logged) when none is free.
// For a start without anyone to ask.
std::optional<quint16> FirstFreeWebPort(SettingsStore& settings, const QList<quint16>& skip);
