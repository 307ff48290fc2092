#pragma once

#include <QFile>
#include <QStringList>

#include <cstdio>
#include <unistd.h>

// A case's figures: guest.sh puts the lines printed here on the case's line.
inline void Figures(const QString& text) {
    std::printf("FIGURES %s\n", qPrintable(text));
    std::fflush(stdout);
}

// rc-loopback's device.
inline const QString LircDevice = QStringLiteral("/dev/lirc0");

// CPU seconds a process has used, user and system.
inline double CpuSeconds(qint64 pid) {
    QFile f(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray stat = f.readAll();
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    return (fields.value(11).toDouble() + fields.value(12).toDouble()) / sysconf(_SC_CLK_TCK);
}

// Two codes of every protocol the kernel encodes (not rc-mm: Debian has no coder for it).
inline const QStringList KernelCodes =
    QStringLiteral(
        "nec:0x4012 nec:0x00ff necx:0x12a55e necx:0x400012 nec32:0x12345678 nec32:0xbf400012 "
        "sony12:0x010015 sony12:0x1f007f sony15:0xa50012 sony15:0x010000 sony20:0x1f5a7f "
        "sony20:0x010203 rc5:0x1e0c rc5:0x0b7f rc5x_20:0x1e7c3f rc5x_20:0x010101 rc6_0:0x0c0d "
        "rc6_0:0xff00 rc6_6a_20:0x012345 rc6_6a_20:0xf00ff rc6_6a_24:0xfedcba "
        "rc6_6a_24:0x010203 rc6_6a_32:0x12345678 rc6_6a_32:0x00000001 rc6_mce:0x800f0410 "
        "rc6_mce:0x800f040d jvc:0x1234 jvc:0xff01 sanyo:0x1fff12 sanyo:0x000801 sharp:0x1ea5 "
        "sharp:0x0100")
        .split(u' ');
