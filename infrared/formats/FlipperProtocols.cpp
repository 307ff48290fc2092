#include "infrared/formats/FlipperProtocols.h"

#include <array>

using namespace Qt::StringLiterals;

namespace {

IrCode make(IrProtocol protocol, uint32_t scancode) {
    IrCode code;
    code.protocol = protocol;
    code.scancode = scancode;
    return code;
}

// The NEC frame the four bytes make, in the kernel's terms: nec when both
// halves carry their inverse, necx when only the command does, else nec32.
IrCode necCode(uint32_t a0, uint32_t a1, uint32_t c0, uint32_t c1) {
    IrCode code;
    if ((c0 ^ c1) != 0xFF)
        code = make(IrProtocol::Nec32, a1 << 24 | a0 << 16 | c1 << 8 | c0);
    else if ((a0 ^ a1) != 0xFF)
        code = make(IrProtocol::Necx, a0 << 16 | a1 << 8 | c0);
    else
        code = make(IrProtocol::Nec, a0 << 8 | c0);
    return code;
}

// Pulse-distance frames the kernel has no encoder for: a leader, bits sent as
// a pulse and a short or long space, a stop pulse, and a frame period.
struct PulseDistance {
    uint32_t leaderPulse, leaderSpace, pulse, zero, one, period;
    uint32_t repeatSpace; // NEC's repeat code (leader, this space, a pulse); 0 none
    int carrierHz;
};

IrTiming pulseDistance(const PulseDistance& p, const std::vector<bool>& bits) {
    IrTiming t;
    t.carrierHz = p.carrierHz;
    auto& d = t.durations;
    auto close = [&](size_t from) {
        uint32_t used = 0;
        for (size_t i = from; i < d.size(); ++i)
            used += d[i];
        d.push_back(p.period > used + 10000 ? p.period - used : 10000);
    };
    d = {p.leaderPulse, p.leaderSpace};
    for (bool b : bits) {
        d.push_back(p.pulse);
        d.push_back(b ? p.one : p.zero);
    }
    d.push_back(p.pulse);
    close(0);
    t.repeatBegin = p.repeatSpace ? int(d.size()) : 0;
    if (p.repeatSpace) {
        const size_t from = d.size();
        d.insert(d.end(), {p.leaderPulse, p.repeatSpace, p.pulse});
        close(from);
    }
    return t;
}

// Bits of v, least significant first (lsbFirst) or most.
void put(std::vector<bool>& bits, uint32_t v, int n, bool lsbFirst) {
    for (int i = 0; i < n; ++i)
        bits.push_back((v >> (lsbFirst ? i : n - 1 - i)) & 1);
}

constexpr PulseDistance Nec42{9000, 4500, 560, 560, 1690, 108000, 2250, 38000};
constexpr PulseDistance Rca{4000, 4000, 500, 1000, 2000, 64000, 0, 56000};

} // namespace

bool FlipperParsedSignal(const QString& protocol, uint32_t a, uint32_t c, NamedSignal* signal,
                         QString* why) {
    auto fits = [&](uint32_t addressMax, uint32_t commandMax) {
        if (a <= addressMax && c <= commandMax)
            return true;
        *why = u"%1 address 0x%2 or command 0x%3 out of range"_s.arg(protocol).arg(a, 0, 16).arg(
            c, 0, 16);
        return false;
    };
    IrCode code;
    if (protocol == u"NEC") {
        if (!fits(0xFF, 0xFF))
            return false;
        code = make(IrProtocol::Nec, a << 8 | c);
    } else if (protocol == u"NECext") {
        if (!fits(0xFFFF, 0xFFFF))
            return false;
        code = necCode(a & 0xFF, a >> 8, c & 0xFF, c >> 8);
    } else if (protocol == u"Samsung32") {
        if (!fits(0xFF, 0xFF))
            return false;
        code = make(IrProtocol::Samsung32, a << 8 | c);
    } else if (protocol == u"RC5" || protocol == u"RC5X") {
        // The 7th command bit goes out inverted in the second start bit; RC5X
        // is RC5 with that bit set (second start bit cleared), so its commands
        // 0 to 127 name 64 to 127. RC5 commands above 63 say the same.
        if (!fits(0x1F, 0x7F))
            return false;
        code = make(IrProtocol::Rc5, a << 8 | c | (protocol == u"RC5X" ? 0x40 : 0));
    } else if (protocol == u"RC6") {
        if (!fits(0xFF, 0xFF))
            return false;
        code = make(IrProtocol::Rc6_0, a << 8 | c);
    } else if (protocol == u"SIRC" || protocol == u"SIRC15") {
        if (!fits(protocol == u"SIRC" ? 0x1F : 0xFF, 0x7F))
            return false;
        code = make(protocol == u"SIRC" ? IrProtocol::Sony12 : IrProtocol::Sony15, a << 16 | c);
    } else if (protocol == u"SIRC20") {
        // Flipper's 13-bit address is the device (low 5 bits) and the
        // extended byte, in the order they are sent.
        if (!fits(0x1FFF, 0x7F))
            return false;
        code = make(IrProtocol::Sony20, (a & 0x1F) << 16 | (a >> 5) << 8 | c);
    } else if (protocol == u"NEC42" || protocol == u"NEC42ext") {
        // 42 bits, least significant first: 13 address bits and their
        // inverse, 8 command bits and theirs (NEC42ext: 26 and 16 as given).
        const bool ext = protocol == u"NEC42ext";
        if (!fits(ext ? 0x3FFFFFF : 0x1FFF, ext ? 0xFFFF : 0xFF))
            return false;
        std::vector<bool> bits;
        if (ext) {
            put(bits, a, 26, true);
            put(bits, c, 16, true);
        } else {
            put(bits, a, 13, true);
            put(bits, ~a & 0x1FFF, 13, true);
            put(bits, c, 8, true);
            put(bits, ~c & 0xFF, 8, true);
        }
        signal->timing = pulseDistance(Nec42, bits);
        return true;
    } else if (protocol == u"RCA") {
        // 4 address and 8 command bits, then both inverted, most significant
        // first, on 56 kHz.
        if (!fits(0xF, 0xFF))
            return false;
        std::vector<bool> bits;
        put(bits, a, 4, false);
        put(bits, c, 8, false);
        put(bits, ~a & 0xF, 4, false);
        put(bits, ~c & 0xFF, 8, false);
        signal->timing = pulseDistance(Rca, bits);
        return true;
    } else if (protocol == u"Pioneer") {
        if (!fits(0xFF, 0xFF))
            return false;
        code = make(IrProtocol::Pioneer, a << 16 | (~a & 0xFF) << 8 | c);
    } else if (protocol == u"Kaseikyo") {
        // Flipper's address is id<<24 | maker<<8 | genre1<<4 | genre2 (maker
        // bytes as sent, first in the low byte), its 10-bit command the data;
        // the frame's check nibble and byte follow from them.
        if (!fits(0x03FFFFFF, 0x3FF))
            return false;
        const uint32_t maker = a >> 8 & 0xFFFF;
        const uint8_t m0 = uint8_t(maker), m1 = uint8_t(maker >> 8);
        std::vector<uint8_t> b{m0, m1};
        b.push_back(uint8_t((((m0 ^ m1) & 0xF) ^ (m0 ^ m1) >> 4) | (a >> 4 & 0xF) << 4));
        b.push_back(uint8_t((a & 0xF) | (c & 0xF) << 4));
        b.push_back(uint8_t((a >> 24 & 3) << 6 | c >> 4));
        b.push_back(uint8_t(b[2] ^ b[3] ^ b[4]));
        code.protocol = IrProtocol::Aeha;
        code.frames.push_back(std::move(b));
    } else {
        *why = u"protocol %1 is not known"_s.arg(protocol);
        return false;
    }
    code.repeats = true; // a held key goes on as the protocol's remote does
    std::optional<IrTiming> timing = EncodeSignal(code);
    if (!timing) {
        *why = u"%1 cannot be encoded"_s.arg(protocol);
        return false;
    }
    signal->code = code;
    signal->timing = std::move(*timing);
    return true;
}

bool FlipperParsedOf(const NamedSignal& signal, QString* protocol, uint32_t* address,
                     uint32_t* command) {
    IrCode code = signal.code.decoded() ? signal.code : DecodeSignal(signal.timing);
    const uint32_t sc = code.scancode;
    switch (code.protocol) {
    case IrProtocol::Nec:
        *protocol = u"NEC"_s;
        *address = sc >> 8;
        *command = sc & 0xFF;
        return true;
    case IrProtocol::Necx:
        *protocol = u"NECext"_s;
        *address = (sc >> 16) | (sc & 0xFF00);
        *command = (sc & 0xFF) | (~sc & 0xFF) << 8;
        return true;
    case IrProtocol::Nec32:
        *protocol = u"NECext"_s;
        *address = ((sc >> 16) & 0xFF) | (sc >> 24) << 8;
        *command = sc & 0xFFFF;
        return true;
    case IrProtocol::Samsung32:
        *protocol = u"Samsung32"_s;
        *address = sc >> 8;
        *command = sc & 0xFF;
        return true;
    case IrProtocol::Rc5:
        *protocol = sc & 0x40 ? u"RC5X"_s : u"RC5"_s;
        *address = (sc >> 8) & 0x1F;
        *command = sc & 0x3F;
        return true;
    case IrProtocol::Rc6_0:
        *protocol = u"RC6"_s;
        *address = sc >> 8;
        *command = sc & 0xFF;
        return true;
    case IrProtocol::Sony12:
    case IrProtocol::Sony15:
        *protocol = code.protocol == IrProtocol::Sony12 ? u"SIRC"_s : u"SIRC15"_s;
        *address = sc >> 16;
        *command = sc & 0x7F;
        return true;
    case IrProtocol::Sony20:
        *protocol = u"SIRC20"_s;
        *address = ((sc >> 16) & 0x1F) | ((sc >> 8) & 0xFF) << 5;
        *command = sc & 0x7F;
        return true;
    case IrProtocol::Pioneer:
        if (!code.frames.empty() || ((sc >> 16) ^ (sc >> 8 & 0xFF)) != 0xFF)
            return false;
        *protocol = u"Pioneer"_s;
        *address = sc >> 16;
        *command = sc & 0xFF;
        return true;
    case IrProtocol::Aeha: {
        // Kaseikyo as Flipper reads it: six bytes, the maker's check nibble
        // and the XOR of bytes 2 to 4 last.
        if (code.frames.size() != 1 || code.frames[0].size() != 6)
            return false;
        const auto& b = code.frames[0];
        const uint8_t makerCheck = uint8_t(((b[0] ^ b[1]) & 0xF) ^ (b[0] ^ b[1]) >> 4);
        if ((b[2] & 0xF) != makerCheck || b[5] != (b[2] ^ b[3] ^ b[4]))
            return false;
        *protocol = u"Kaseikyo"_s;
        *address = uint32_t(b[4] >> 6) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[0]) << 8 |
                   uint32_t(b[2] >> 4) << 4 | (b[3] & 0xF);
        *command = uint32_t(b[3] >> 4) | uint32_t(b[4] & 0x3F) << 4;
        return true;
    }
    default:
        return false;
    }
}
