#pragma once

class QHostAddress;
class QString;
#include <QtGlobal>

// An address of this machine or the home network: 10/8, 172.16/12,
// 192.168/16, 127/8, 169.254/16, ::1, fc00::/7, fe80::/10. An IPv4 address
// carried in IPv6 counts as the IPv4 address.
bool IsPrivateAddress(const QHostAddress& address);

// This machine's address on the home network: the first private IPv4 address
// of an interface that is up, other than loopback; else 127.0.0.1.
QHostAddress LocalAddress();

// The same address as the text the port mapping names as its client, or
// "Failed" when this machine has no private address besides loopback.
QString GetPrivateIP();

// "http://<local address>" with ":<port>" unless the port is 80.
QString LocalUrl(quint16 port);
