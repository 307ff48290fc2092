#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

// RCA: {58k,460,msb}<1,-2|1,-4>(8,-8,D:4,F:8,~D:4,~F:8,1,-16); RCA-38 is the
// same on 38.7 kHz, told apart by the carrier the signal carries.
namespace irproto {
namespace {

constexpr double Unit = 460;
const PdTiming Timing{8 * Unit, 8 * Unit, Unit, 2 * Unit, 4 * Unit, 10 * Unit};

bool decode(const Durations& d, size_t at, Frame* out) {
    if (at + 1 >= d.size() || d[at] < 2500 || d[at] > 5000 || d[at + 1] < 2500 || d[at + 1] > 5000)
        return false;
    Bits bits;
    Judge j;
    j.slack = 0.3 * Unit;
    j.scale = unitScale(d, at + 2, Unit, true, false, 6 * Unit);
    const size_t end = twoPass(j, [&](Judge& jj) {
        bits = Bits{};
        return readPd(d, at, Timing, jj, bits);
    });
    if (!end || bits.count != 24)
        return false;
    const uint32_t a = bits.takeMsb(0, 4), c = bits.takeMsb(4, 8);
    if ((a ^ bits.takeMsb(12, 4)) != 0xF || (c ^ bits.takeMsb(16, 8)) != 0xFF)
        return false;
    out->code.protocol = IrProtocol::Rca;
    out->code.scancode = a << 8 | c;
    out->end = end;
    return true;
}

bool write(const IrCode& code, Writer& w) {
    if (code.protocol != IrProtocol::Rca && code.protocol != IrProtocol::Rca38)
        return false;
    const uint32_t a = code.scancode >> 8 & 0xF, c = code.scancode & 0xFF;
    const uint32_t v = a << 20 | c << 12 | (~a & 0xF) << 8 | (~c & 0xFF);
    Bits bits; // sent most significant first
    for (int i = 23; i >= 0; --i)
        bits.push((v >> i) & 1);
    w.pd(Timing, bits.bytes.data(), 24);
    w.d.push_back(uint32_t(16 * Unit));
    return true;
}

std::optional<IrpCode> irp(const IrCode& c) {
    if (c.protocol != IrProtocol::Rca && c.protocol != IrProtocol::Rca38)
        return std::nullopt;
    return IrpCode{c.protocol == IrProtocol::Rca ? u"RCA"_s : u"RCA-38"_s, c.scancode >> 8, -1,
                   c.scancode & 0xFF};
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    const bool rca38 = irpNameIs(i.protocol, "RCA-38");
    if (!rca38 && !irpNameIs(i.protocol, "RCA"))
        return std::nullopt;
    return codeOfDF(i, rca38 ? IrProtocol::Rca38 : IrProtocol::Rca, 0xF, 0xFF, why);
}

} // namespace

// Below 48 kHz it is RCA-38; an unknown carrier stays RCA, the common one.
void rcaByCarrier(IrCode& c, int carrierHz) {
    if (c.protocol == IrProtocol::Rca && carrierHz > 0 && carrierHz < 48000)
        c.protocol = IrProtocol::Rca38;
}

const Family RcaFamily{decode, write, frameAgain, irp, fromIrp};

} // namespace irproto
