#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {
namespace {

constexpr double SharpPulse = 320, SharpZero = 680, SharpOne = 1680, SharpEcho = 40000;

// Sharp: no leader; 5 address bits, 8 command bits and two check bits, LSB
// first, then after 40 ms the same with command and check bits inverted.
bool decodeSharp(const Durations& d, size_t at, Frame* out) {
    if (d[at] < 150 || d[at] > 600)
        return false;
    // The kernel encodes spaces of 680 and 1680 µs, ir-ctl's own encoder the
    // whole bit periods (1000, 2000): the kernel's decoder allows 640 µs on a
    // bit, and so do we, telling the two apart halfway.
    PdTiming t{0, 0, SharpPulse, SharpZero, SharpOne, 5000};
    t.split = (SharpZero + SharpOne) / 2;
    Bits first, second;
    Judge j;
    j.slack = 330;
    j.scale = unitScale(d, at, SharpPulse, true, false, 3000);
    const size_t end = twoPass(j, [&](Judge& jj) -> size_t {
        first = Bits{};
        second = Bits{};
        const size_t echo = readPd(d, at, t, jj, first);
        if (!echo || first.count != 15 || echo + 1 >= d.size() || !jj.near(d[echo], SharpEcho))
            return 0;
        const size_t end = readPd(d, echo + 1, t, jj, second);
        return second.count == 15 ? end : 0;
    });
    if (!end)
        return false;
    const uint32_t msg = first.take(0, 15), echo = second.take(0, 15);
    const uint32_t check = msg >> 13;
    if ((msg ^ echo) != 0x7FE0 || (check != 1 && check != 0))
        return false;
    out->code.protocol = IrProtocol::Sharp;
    out->code.scancode = (msg & 0x1F) << 8 | ((msg >> 5) & 0xFF);
    out->end = end;
    return true;
}

bool write(const IrCode& code, Writer& w) {
    if (code.protocol != IrProtocol::Sharp)
        return false;
    const uint32_t sc = code.scancode;
    auto half = [&](uint32_t command, uint32_t check) {
        const uint32_t v = ((sc >> 8) & 0x1F) | (command & 0xFF) << 5 | check << 13;
        const std::array<uint8_t, 2> b{uint8_t(v), uint8_t(v >> 8)};
        w.pd({0, 0, SharpPulse, SharpZero, SharpOne, 0}, b.data(), 15);
    };
    half(sc, 1);
    w.d.push_back(uint32_t(SharpEcho));
    half(~sc, 2);
    w.d.push_back(uint32_t(SharpEcho));
    return true;
}

// Sharp {D:5,F:8}.
std::optional<IrpCode> irp(const IrCode& c) {
    if (c.protocol != IrProtocol::Sharp)
        return std::nullopt;
    return IrpCode{u"Sharp"_s, c.scancode >> 8, -1, c.scancode & 0xFF};
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    if (!irpNameIs(i.protocol, "Sharp"))
        return std::nullopt;
    if (!irpRange(i, 'D', i.D, 0x1F, why) || !irpRange(i, 'F', i.F, 0xFF, why))
        return std::nullopt;
    IrCode c;
    c.protocol = IrProtocol::Sharp;
    c.scancode = uint32_t(i.D << 8 | i.F);
    return c;
}

} // namespace

const Family SharpFamily{decodeSharp, write, frameAgain, irp, fromIrp};

} // namespace irproto
