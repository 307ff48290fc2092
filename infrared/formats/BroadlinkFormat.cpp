// Broadlink's IR packet, base64 (or hex) as shared for Home Assistant: 0x26,
// a repeat count, the 16-bit little-endian length of what follows, one byte
// per duration or 0x00 and 16 bits big-endian, then 0x0d 0x05. The unit is
// the caller's (the maker's notes give 269/8192 ms, about 32.84 µs).
//
// Codes learned by the devices are looser than that: the length may stop
// short of the end marker or run past it, zeros may stand before the marker
// and after it, some packets carry no marker at all, only zeros after the
// announced length, and some end one byte short, in the marker's 0x0d. All of those are read;
// anything else is refused.
#include "infrared/formats/FormatText.h"
#include "infrared/formats/IrFormats.h"

#include <algorithm>
#include <cctype>
#include <cmath>

using namespace Qt::StringLiterals;
using namespace IrFormatText;

namespace {

constexpr uint8_t IrPacket = 0x26;

} // namespace

std::optional<NamedSignal> ReadBroadlink(QByteArrayView bytes, const QString& fileName,
                                         double unitUs, QString* error) {
    auto fail = [&](const QString& what) {
        *error = At(fileName, 0, what);
        return std::nullopt;
    };
    QByteArray text;
    for (char c : bytes)
        if (!IsSpace(c))
            text.append(c);
    QByteArray packet;
    const bool hex = text.startsWith("26") && std::all_of(text.begin(), text.end(), [](char c) {
                         return std::isxdigit(uchar(c));
                     });
    if (hex) {
        packet = QByteArray::fromHex(text);
    } else {
        // Shared codes carry any number of '=' at the end, or none; the
        // characters before them tell how many bytes there are.
        while (text.endsWith('='))
            text.chop(1);
        if (text.size() % 4 == 1)
            return fail(u"base64 with one character too many or too few (%1 characters)"_s.arg(
                text.size()));
        auto decoded = QByteArray::fromBase64Encoding(
            text, QByteArray::AbortOnBase64DecodingErrors | QByteArray::Base64Encoding);
        if (!decoded)
            decoded = QByteArray::fromBase64Encoding(text, QByteArray::AbortOnBase64DecodingErrors |
                                                               QByteArray::Base64UrlEncoding);
        if (!decoded) {
            const auto odd = std::find_if(text.begin(), text.end(), [](char c) {
                return !std::isalnum(uchar(c)) && c != '+' && c != '/' && c != '-' && c != '_';
            });
            return fail(odd == text.end() ? u"not base64"_s
                                          : u"not base64: %1 at character %2"_s
                                                .arg(Quote(QByteArrayView(&*odd, 1)))
                                                .arg(odd - text.begin() + 1));
        }
        packet = *decoded;
    }
    if (packet.size() < 4)
        return fail(u"too short for a Broadlink packet"_s);
    const auto byte = [&](qsizetype i) { return uint32_t(uint8_t(packet[i])); };
    if (byte(0) != IrPacket)
        return fail(byte(0) == 0xB2 || byte(0) == 0xD7
                        ? u"a radio (RF) code, not an infrared one"_s
                        : u"not a Broadlink infrared packet (type %1, not 0x26)"_s.arg(
                              byte(0), 2, 16, QChar(u'0')));
    const qsizetype length = qsizetype(byte(2) | byte(3) << 8);
    // Some shared codes lost their last byte, the 0x05 of the end marker.
    if (4 + length == packet.size() + 1 && byte(packet.size() - 1) == 0x0D)
        packet.append('\x05');
    if (4 + length > packet.size())
        return fail(
            u"the packet announces %1 bytes and has %2"_s.arg(length).arg(packet.size() - 4));
    // Where the durations stop: zeros, 0x0d 0x05, zeros up to the end of the
    // packet; or, past the announced length, nothing but zeros.
    const auto endsAt = [&](qsizetype at) {
        qsizetype i = at;
        while (i < packet.size() && byte(i) == 0)
            ++i;
        if (i == packet.size())
            return true;
        if (i + 2 > packet.size() || byte(i) != 0x0D || byte(i + 1) != 0x05)
            return false;
        for (i += 2; i < packet.size(); ++i)
            if (byte(i) != 0)
                return false;
        return true;
    };
    const auto onlyZeros = [&](qsizetype at) {
        return std::all_of(packet.begin() + at, packet.end(), [](char c) { return c == 0; });
    };
    NamedSignal code;
    auto& d = code.timing.durations;
    for (qsizetype i = 4;;) {
        if (endsAt(i)) {
            if (onlyZeros(i) && i < 4 + length)
                return fail(
                    u"the packet ends at byte %1, before the %2 bytes it announces"_s.arg(i).arg(
                        length));
            break;
        }
        uint32_t units = byte(i++);
        if (units == 0) {
            if (i + 2 > packet.size())
                return fail(u"a long duration is cut short at byte %1"_s.arg(i));
            units = byte(i) << 8 | byte(i + 1);
            i += 2;
        }
        if (units == 0)
            return fail(u"a duration of zero at byte %1"_s.arg(i - 3));
        if (d.size() >= size_t(MaxDurations))
            return fail(u"more than %1 durations"_s.arg(MaxDurations));
        d.push_back(uint32_t(std::lround(units * unitUs)));
    }
    if (d.empty())
        return fail(u"the packet holds no durations"_s);
    // A repeat count sends the whole packet again.
    if (byte(1) > 0)
        code.timing.repeatBegin = 0;
    const QString why = TimingProblem(code.timing);
    if (!why.isEmpty())
        return fail(why);
    return code;
}

QByteArray WriteBroadlink(const NamedSignal& code, double unitUs, QString* error) {
    std::vector<uint32_t> d = code.timing.durations;
    if (d.size() % 2)
        d.push_back(code.timing.gapUs());
    QByteArray packet;
    packet.append(char(IrPacket));
    packet.append('\0');
    packet.append("\0\0", 2); // the length, below
    for (uint32_t us : d) {
        const long units = std::max(1L, std::lround(us / unitUs));
        if (units > 0xFFFF) {
            *error = u"a duration of %1 µs is longer than a Broadlink packet can hold"_s.arg(us);
            return {};
        }
        if (units < 0x100) {
            packet.append(char(units));
        } else {
            packet.append('\0');
            packet.append(char(units >> 8));
            packet.append(char(units & 0xFF));
        }
    }
    packet.append("\x0d\x05", 2);
    const qsizetype length = packet.size() - 4;
    if (length > 0xFFFF) {
        *error = u"too long for a Broadlink packet"_s;
        return {};
    }
    packet[2] = char(length & 0xFF);
    packet[3] = char(length >> 8);
    // The device takes packets in whole blocks of 16 bytes.
    while (packet.size() % 16)
        packet.append('\0');
    return packet.toBase64() + '\n';
}
