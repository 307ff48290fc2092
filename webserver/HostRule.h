#pragma once

#include <QString>
#include <QStringView>

namespace Http {
struct Request;
}
struct FrontRequest;
class SettingsStore;

// Which names the server answers to. A page of another site can point its own
// name at this machine (DNS rebinding) and then talk to us as if it were on the
// same site; its requests still name its host. Served are: address literals
// (IPv4, [IPv6]), localhost, this machine's host name (plain or .local),
// [Options] DNS_Host and the names of [WebServer] Hosts (comma separated),
// whatever the case, port or a trailing dot. A request without a Host line
// (HTTP/1.0) names nothing and is served.
class HostRule {
public:
    explicit HostRule(SettingsStore& settings) : settings_(settings) {}

    bool Admits(const Http::Request& request);
    bool Admits(const FrontRequest& request);
    // host: a Host value. While setting.ini cannot be read, only the names that
    // need no setting are ours.
    bool AdmitsHost(QStringView host);

    // The name in a Host value or a setting: lower case, without port and
    // trailing dot; an IPv6 literal keeps its brackets. "" when it is neither a
    // name nor an address.
    static QString NameOf(QStringView host);

private:
    SettingsStore& settings_;
    QString lastRefused_; // logged once, not once a request
};
