#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {
namespace {

// RECS80 {38k,158,msb}<1,-31|1,-47>(1:1,T:1,D:3,F:6,1,-45m)+: short pulses
// and long spaces; a start bit, the toggle, 3 address and 6 command bits.
const PdTiming Timing{0, 0, 158, 31 * 158, 47 * 158, 20000};
constexpr uint32_t Recs80Pause = 45000;

bool decode(const Durations& d, size_t at, Frame* out) {
    if (d[at] < 60 || d[at] > 500 || at + 1 >= d.size() || d[at + 1] < 3000 || d[at + 1] > 10000)
        return false;
    Bits bits;
    Judge j;
    j.slack = 150;
    const size_t end = twoPass(j, [&](Judge& jj) -> size_t {
        bits = Bits{};
        const size_t e = readPd(d, at, Timing, jj, bits);
        return bits.count == 11 ? e : 0;
    });
    if (!end || bits.takeMsb(0, 1) != 1)
        return false;
    out->code.protocol = IrProtocol::Recs80;
    out->code.toggle = bits.takeMsb(1, 1);
    out->code.scancode = bits.takeMsb(2, 3) << 8 | bits.takeMsb(5, 6);
    out->end = end;
    return true;
}

bool write(const IrCode& code, Writer& w) {
    if (code.protocol != IrProtocol::Recs80)
        return false;
    const uint32_t v = 1u << 10 | uint32_t(code.toggle) << 9 | ((code.scancode >> 8) & 7) << 6 |
                       (code.scancode & 0x3F);
    for (int i = 10; i >= 0; --i)
        w.add(Timing.pulse, (v >> i) & 1 ? Timing.one : Timing.zero);
    w.add(Timing.pulse, Recs80Pause);
    return true;
}

// RECS80 {D:3,F:6}, the toggle apart as in RC5.
std::optional<IrpCode> irp(const IrCode& c) {
    if (c.protocol != IrProtocol::Recs80)
        return std::nullopt;
    return IrpCode{u"RECS80"_s, c.scancode >> 8, -1, c.scancode & 0x3F};
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    if (!irpNameIs(i.protocol, "RECS80"))
        return std::nullopt;
    return codeOfDF(i, IrProtocol::Recs80, 7, 0x3F, why);
}

} // namespace

const Family Recs80Family{decode, write, frameAgain, irp, fromIrp};

} // namespace irproto
