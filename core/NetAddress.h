#pragma once

class QHostAddress;

// An address of this machine or the home network: 10/8, 172.16/12,
// 192.168/16, 127/8, 169.254/16, ::1, fc00::/7, fe80::/10. An IPv4 address
// carried in IPv6 counts as the IPv4 address.
bool IsPrivateAddress(const QHostAddress& address);
