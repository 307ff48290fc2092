#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {
namespace {

constexpr double SonyUnit = 600;
constexpr uint32_t SonyPeriod = 45000;

// Sony: 4T leader pulse, then bits as 1T space + 1T (0) or 2T (1) pulse, LSB
// first: 7 command bits, 5 or 8 device bits, 8 subdevice bits in the 20-bit form.
size_t readSony(const Durations& d, size_t at, Judge& j, Bits& bits) {
    const size_t n = d.size();
    if (!j.near(d[at], 4 * SonyUnit))
        return 0;
    j.count(d[at], 4 * SonyUnit);
    ++at;
    const double longest = (SonyUnit * (1 + j.tol) + j.slack) * j.scale;
    for (;;) {
        if (at >= n)
            return at;
        const uint32_t space = d[at];
        if (space > longest)
            return space >= 5 * SonyUnit * j.scale * 0.75 ? at : 0;
        if (!j.near(space, SonyUnit))
            return 0;
        j.count(space, SonyUnit);
        if (++at >= n)
            return 0;
        const double want = d[at] > 4.0 / 3 * SonyUnit * j.scale ? 2 * SonyUnit : SonyUnit;
        if (!j.near(d[at], want) || !bits.push(want > SonyUnit))
            return 0;
        j.count(d[at], want);
        ++at;
    }
}

bool decodeSony(const Durations& d, size_t at, Frame* out) {
    if (d[at] < 1200 || d[at] > 4500)
        return false;
    Bits bits;
    Judge j;
    j.slack = 0.3 * SonyUnit;
    j.scale = unitScale(d, at + 1, SonyUnit, false, true, 3 * SonyUnit);
    const size_t end = twoPass(j, [&](Judge& jj) {
        bits = Bits{};
        return readSony(d, at, jj, bits);
    });
    if (!end)
        return false;
    const uint32_t cmd = bits.take(0, 7);
    IrCode& c = out->code;
    switch (bits.count) {
    case 12:
        c.protocol = IrProtocol::Sony12;
        c.scancode = bits.take(7, 5) << 16 | cmd;
        break;
    case 15:
        c.protocol = IrProtocol::Sony15;
        c.scancode = bits.take(7, 8) << 16 | cmd;
        break;
    case 20:
        c.protocol = IrProtocol::Sony20;
        c.scancode = bits.take(7, 5) << 16 | bits.take(12, 8) << 8 | cmd;
        break;
    default:
        return false;
    }
    out->end = end;
    return true;
}

bool write(const IrCode& code, Writer& w) {
    const uint32_t sc = code.scancode;
    const size_t from = w.d.size();
    switch (code.protocol) {
    case IrProtocol::Sony12:
    case IrProtocol::Sony15:
    case IrProtocol::Sony20: {
        const int deviceBits = code.protocol == IrProtocol::Sony15 ? 8 : 5;
        uint32_t v = (sc & 0x7F) | ((sc >> 16) & ((1u << deviceBits) - 1)) << 7;
        int nbits = 7 + deviceBits;
        if (code.protocol == IrProtocol::Sony20) {
            v |= ((sc >> 8) & 0xFF) << 12;
            nbits = 20;
        }
        w.d.push_back(uint32_t(4 * SonyUnit));
        for (int i = 0; i < nbits; ++i)
            w.add(SonyUnit, (v >> i) & 1 ? 2 * SonyUnit : SonyUnit);
        w.pauseTo(from, SonyPeriod, uint32_t(11 * SonyUnit));
        break;
    }
    default:
        return false;
    }
    return true;
}

// Sony12 {D:5,F:7}, Sony15 {D:8,F:7}, Sony20 {D:5,S:8,F:7}: the kernel's
// device, subdevice and function.
std::optional<IrpCode> irp(const IrCode& c) {
    const int64_t sc = c.scancode;
    switch (c.protocol) {
    case IrProtocol::Sony12:
        return IrpCode{u"Sony12"_s, sc >> 16, -1, sc & 0x7F};
    case IrProtocol::Sony15:
        return IrpCode{u"Sony15"_s, sc >> 16, -1, sc & 0x7F};
    case IrProtocol::Sony20:
        return IrpCode{u"Sony20"_s, sc >> 16, (sc >> 8) & 0xFF, sc & 0x7F};
    default:
        return std::nullopt;
    }
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    IrCode c;
    int64_t deviceMax = 0x1F;
    if (irpNameIs(i.protocol, "Sony12")) {
        c.protocol = IrProtocol::Sony12;
    } else if (irpNameIs(i.protocol, "Sony15")) {
        c.protocol = IrProtocol::Sony15;
        deviceMax = 0xFF;
    } else if (irpNameIs(i.protocol, "Sony20")) {
        c.protocol = IrProtocol::Sony20;
    } else {
        return std::nullopt;
    }
    const int64_t s = c.protocol == IrProtocol::Sony20 ? i.S : 0;
    if (!irpRange(i, 'D', i.D, deviceMax, why) || !irpRange(i, 'S', s, 0xFF, why) ||
        !irpRange(i, 'F', i.F, 0x7F, why))
        return std::nullopt;
    c.scancode = uint32_t(i.D << 16 | s << 8 | i.F);
    return c;
}

} // namespace

const Family SonyFamily{decodeSony, write, frameAgain, irp, fromIrp};

} // namespace irproto
