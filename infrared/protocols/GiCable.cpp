#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

// G.I. Cable: {38.7k,490}<1,-4.5|1,-9>(18,-9,F:8,D:4,C:4,1,-84,(18,-4.5,1,
// -178)*) with C = -(D + F's nibbles). The ditto is NEC's repeat frame as far
// as a reader can tell; the NEC reader reads it.
namespace irproto {
namespace {

constexpr double Unit = 490;
// The pause before a ditto is 84 units by the book, 30 to 40 ms on real remotes.
const PdTiming Timing{18 * Unit, 9 * Unit, Unit, 4.5 * Unit, 9 * Unit, 40 * Unit};

uint32_t check(uint32_t d, uint32_t f) {
    return (0x100 - d - (f & 0xF) - (f >> 4)) & 0xF;
}

bool decode(const Durations& d, size_t at, Frame* out) {
    if (at + 1 >= d.size() || d[at] < 6600 || d[at] > 11500 || d[at + 1] < 3300 || d[at + 1] > 5600)
        return false;
    Bits bits;
    Judge j;
    j.slack = 0.3 * Unit;
    j.scale = unitScale(d, at + 2, Unit, true, false, 12 * Unit);
    const size_t end = twoPass(j, [&](Judge& jj) {
        bits = Bits{};
        return readPd(d, at, Timing, jj, bits);
    });
    if (!end || bits.count != 16)
        return false;
    const uint32_t f = bits.take(0, 8), dev = bits.take(8, 4);
    if (bits.take(12, 4) != check(dev, f))
        return false;
    out->code.protocol = IrProtocol::GiCable;
    out->code.scancode = dev << 8 | f;
    out->end = end;
    return true;
}

bool write(const IrCode& code, Writer& w) {
    if (code.protocol != IrProtocol::GiCable)
        return false;
    const uint32_t dev = code.scancode >> 8 & 0xF, f = code.scancode & 0xFF;
    const std::array<uint8_t, 2> b{uint8_t(f), uint8_t(dev | check(dev, f) << 4)};
    w.pd(Timing, b.data(), 16);
    w.d.push_back(uint32_t(84 * Unit));
    return true;
}

bool writeRepeat(const IrCode& code, Writer& w) {
    if (code.protocol != IrProtocol::GiCable)
        return false;
    w.add(18 * Unit, 4.5 * Unit);
    w.add(Unit, 178 * Unit);
    return true;
}

std::optional<IrpCode> irp(const IrCode& c) {
    if (c.protocol != IrProtocol::GiCable)
        return std::nullopt;
    return IrpCode{u"G.I. Cable"_s, c.scancode >> 8, -1, c.scancode & 0xFF};
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    if (!irpNameIs(i.protocol, "G.I. Cable"))
        return std::nullopt;
    return codeOfDF(i, IrProtocol::GiCable, 0xF, 0xFF, why);
}

} // namespace

const Family GiCableFamily{decode, write, writeRepeat, irp, fromIrp};

} // namespace irproto
