#pragma once

#include <QString>
#include <QStringView>

// Every key of setting.ini, named once. Call sites say Key::WebAuth, never a
// section and a key as text, so that a key cannot be spelled two ways.
struct SettingKey {
    QString section;
    QString key;
};

namespace Key {

// Options: the web server, internet access and the address-change services.
inline const SettingKey Internet{QStringLiteral("Options"), QStringLiteral("Internet")};
inline const SettingKey WebAuth{QStringLiteral("Options"), QStringLiteral("WebAuth")};
inline const SettingKey WebUser{QStringLiteral("Options"), QStringLiteral("Web_User")};
inline const SettingKey WebPass{QStringLiteral("Options"), QStringLiteral("Web_Pass")};
inline const SettingKey TakePic{QStringLiteral("Options"), QStringLiteral("TakePic")};
inline const SettingKey Interval{QStringLiteral("Options"), QStringLiteral("Interval")};
inline const SettingKey PowerControl{QStringLiteral("Options"), QStringLiteral("PowerControl")};
inline const SettingKey PowerUser{QStringLiteral("Options"), QStringLiteral("PowerControl-User")};
inline const SettingKey PowerPass{QStringLiteral("Options"), QStringLiteral("PowerControl-Pass")};
inline const SettingKey UPnPDescURL{QStringLiteral("Options"), QStringLiteral("UPnPDescURL")};
inline const SettingKey IPCheckURL{QStringLiteral("Options"), QStringLiteral("IPCheckURL")};
inline const SettingKey NotifyMail{QStringLiteral("Options"), QStringLiteral("NotifyMail")};
inline const SettingKey NotifyTo{QStringLiteral("Options"), QStringLiteral("NotifyTo")};
inline const SettingKey MailFrom{QStringLiteral("Options"), QStringLiteral("MailFrom")};
inline const SettingKey SMTPServer{QStringLiteral("Options"), QStringLiteral("SMTPServer")};
inline const SettingKey POPServer{QStringLiteral("Options"), QStringLiteral("POPServer")};
inline const SettingKey MailAuth{QStringLiteral("Options"), QStringLiteral("MailAuth")};
inline const SettingKey AuthMethod{QStringLiteral("Options"), QStringLiteral("AuthMethod")};
inline const SettingKey MailUser{QStringLiteral("Options"), QStringLiteral("UserID")};
inline const SettingKey MailPass{QStringLiteral("Options"), QStringLiteral("Password")};
inline const SettingKey DnsUpdate{QStringLiteral("Options"), QStringLiteral("DNS_Update")};
inline const SettingKey DnsServer{QStringLiteral("Options"), QStringLiteral("DNS_Server")};
inline const SettingKey DnsHost{QStringLiteral("Options"), QStringLiteral("DNS_Host")};
inline const SettingKey DnsUser{QStringLiteral("Options"), QStringLiteral("DNS_User")};
inline const SettingKey DnsPass{QStringLiteral("Options"), QStringLiteral("DNS_Pass")};

// What the address services last managed; each advances only on its own success.
inline const SettingKey MailLastIP{QStringLiteral("NotifyMail"), QStringLiteral("LastIP")};
inline const SettingKey DnsLastIP{QStringLiteral("DynDns"), QStringLiteral("LastIP")};
inline const SettingKey DnsLastUpdated{QStringLiteral("DynDns"), QStringLiteral("LastUpdated")};

inline const SettingKey WebPort{QStringLiteral("WebServer"), QStringLiteral("Port")};
// HTTPS: its port, the names the server answers to (comma separated), and
// its certificate: from files, else from an ACME CA for DNS_Host and Hosts.
inline const SettingKey HttpsPort{QStringLiteral("WebServer"), QStringLiteral("HttpsPort")};
inline const SettingKey WebHosts{QStringLiteral("WebServer"), QStringLiteral("Hosts")};
inline const SettingKey CertFile{QStringLiteral("WebServer"), QStringLiteral("CertFile")};
inline const SettingKey KeyFile{QStringLiteral("WebServer"), QStringLiteral("KeyFile")};
inline const SettingKey AcmeDirectory{QStringLiteral("WebServer"), QStringLiteral("AcmeDirectory")};
inline const SettingKey AcmeEmail{QStringLiteral("WebServer"), QStringLiteral("AcmeEmail")};
inline const SettingKey AcmeCAFile{QStringLiteral("WebServer"), QStringLiteral("AcmeCAFile")};
inline const SettingKey StreamingPort{QStringLiteral("Streaming"), QStringLiteral("Port")};

// The transceiver. The test-mode key is one key whatever its case.
inline const SettingKey ComPort{QStringLiteral("Tira"), QStringLiteral("ComPort")};
inline const SettingKey TransceiverPath{QStringLiteral("Tira"), QStringLiteral("Device")};
inline const SettingKey TestMode{QStringLiteral("Tira"), QStringLiteral("Testmode")};

inline const SettingKey CameraDevice{QStringLiteral("Camera"), QStringLiteral("Device")};
inline const SettingKey CameraPixelFormat{QStringLiteral("Camera"), QStringLiteral("PixelFormat")};
inline const SettingKey CameraFrameSize{QStringLiteral("Camera"), QStringLiteral("FrameSize")};
inline const SettingKey PreviewAlwaysShow{QStringLiteral("Preview"), QStringLiteral("AlwaysShow")};

inline const SettingKey HibernOrSuspend{QStringLiteral("Power"), QStringLiteral("HibernOrSuspend")};
inline const SettingKey WakePortal{QStringLiteral("Power"), QStringLiteral("WakePortal")};

// Home automation over MQTT. Server empty means off.
inline const SettingKey MqttServer{QStringLiteral("MQTT"), QStringLiteral("Server")};
inline const SettingKey MqttCAFile{QStringLiteral("MQTT"), QStringLiteral("CAFile")};
inline const SettingKey MqttUser{QStringLiteral("MQTT"), QStringLiteral("User")};
inline const SettingKey MqttPass{QStringLiteral("MQTT"), QStringLiteral("Password")};
inline const SettingKey MqttNodeId{QStringLiteral("MQTT"), QStringLiteral("NodeId")};
inline const SettingKey MqttTopic{QStringLiteral("MQTT"), QStringLiteral("Topic")};
inline const SettingKey MqttDiscovery{QStringLiteral("MQTT"), QStringLiteral("Discovery")};
inline const SettingKey MqttDiscoveryPrefix{QStringLiteral("MQTT"),
                                            QStringLiteral("DiscoveryPrefix")};
inline const SettingKey MqttListen{QStringLiteral("MQTT"), QStringLiteral("Listen")};

// The lircd-compatible socket: a path and a TCP port, each off when empty.
inline const SettingKey LircdSocket{QStringLiteral("Lircd"), QStringLiteral("Socket")};
inline const SettingKey LircdPort{QStringLiteral("Lircd"), QStringLiteral("Port")};

// Air conditioners: the ids of the units, "ac1,ac3", and a section each,
// "Climate-<id>", with its name, family and whether a table drives it.
inline const SettingKey ClimateUnits{QStringLiteral("Climate"), QStringLiteral("Units")};
inline QString ClimateSection(QStringView id) {
    return QStringLiteral("Climate-") + id.toString();
}
inline SettingKey ClimateName(QStringView id) {
    return {ClimateSection(id), QStringLiteral("Name")};
}
inline SettingKey ClimateFamily(QStringView id) {
    return {ClimateSection(id), QStringLiteral("Family")};
}
inline SettingKey ClimateTable(QStringView id) {
    return {ClimateSection(id), QStringLiteral("Table")};
}

inline const SettingKey WithWindows{QStringLiteral("Startup"), QStringLiteral("WithWindows")};
inline const SettingKey DateFormat{QStringLiteral("DataFormat"), QStringLiteral("Time")};
inline const SettingKey Hide{QStringLiteral("Pos"), QStringLiteral("Hide")};

// Window positions, in twips: "<window>_T" and "<window>_L" of section Pos.
inline SettingKey PositionTop(QStringView window) {
    return {QStringLiteral("Pos"), window.toString() + QStringLiteral("_T")};
}
inline SettingKey PositionLeft(QStringView window) {
    return {QStringLiteral("Pos"), window.toString() + QStringLiteral("_L")};
}

// A learned remote: section "Remote-<n>" with its name, design and keys
// "Button-<k>".
inline QString RemoteSection(int id) {
    return QStringLiteral("Remote-") + QString::number(id);
}
inline QString ButtonKey(int buttonId) {
    return QStringLiteral("Button-") + QString::number(buttonId);
}
inline SettingKey RemoteName(int id) {
    return {RemoteSection(id), QStringLiteral("Device")};
}
inline SettingKey RemoteDesign(int id) {
    return {RemoteSection(id), QStringLiteral("Design")};
}
inline SettingKey RemoteButton(int id, int buttonId) {
    return {RemoteSection(id), ButtonKey(buttonId)};
}
// As a page names them: the numbers as the request wrote them.
inline SettingKey RemoteName(QStringView id) {
    return {QStringLiteral("Remote-") + id.toString(), QStringLiteral("Device")};
}
inline SettingKey RemoteButton(QStringView id, QStringView buttonId) {
    return {QStringLiteral("Remote-") + id.toString(),
            QStringLiteral("Button-") + buttonId.toString()};
}

} // namespace Key
