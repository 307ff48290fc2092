#pragma once

#include <QObject>
#include <QString>

#include <functional>

class AddressWatch;
class DnsService;
class PortMapping;
class SettingsStore;

// Access from the internet as one switch: on needs the global address and
// then runs the address watch and the port mapping; off stops the watch and
// takes the mapping back. The settings dialog, a page or the start use it.
class InternetAccess : public QObject {
    Q_OBJECT
public:
    InternetAccess(SettingsStore& settings, DnsService& dns, AddressWatch& watch,
                   PortMapping& mapping, QObject* parent = nullptr);

    // The start order: the watch, and the mapping while access is on.
    void Start();
    // Looks the global address up first; without one access stays off.
    // done gets the address, or an empty text when it could not be found.
    // A switch off before the answer wins: done is not called.
    void SwitchOn(std::function<void(const QString& address)> done);
    void SwitchOff();
    bool IsOn() const;
    // The notification mail was switched on or off and saved.
    void MailNotifySaved(bool on);

private:
    SettingsStore& settings_;
    DnsService& dns_;
    AddressWatch& watch_;
    PortMapping& mapping_;
    quint64 generation_ = 0; // a lookup answers only the switch that asked
};
