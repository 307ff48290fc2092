#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {
namespace {

// Mitsubishi {32.6k,300}<1,-3|1,-7>(D:8,F:8,1,-80)+: no leader, 8 address
// and 8 command bits LSB first; 16 bits tell it from Sharp's 15.
const PdTiming Timing{0, 0, 300, 900, 2100, 5000};
constexpr uint32_t MitsubishiPause = 80 * 300;

bool decode(const Durations& d, size_t at, Frame* out) {
    if (d[at] < 150 || d[at] > 600 || at + 1 >= d.size() || d[at + 1] < 500 || d[at + 1] > 3000)
        return false;
    Bits bits;
    Judge j;
    j.slack = 150;
    j.scale = unitScale(d, at, 300, true, false, 3000);
    const size_t end = twoPass(j, [&](Judge& jj) -> size_t {
        bits = Bits{};
        const size_t e = readPd(d, at, Timing, jj, bits);
        return bits.count == 16 ? e : 0;
    });
    if (!end)
        return false;
    out->code.protocol = IrProtocol::Mitsubishi;
    out->code.scancode = bits.take(0, 8) << 8 | bits.take(8, 8);
    out->end = end;
    return true;
}

bool write(const IrCode& code, Writer& w) {
    if (code.protocol != IrProtocol::Mitsubishi)
        return false;
    const std::array<uint8_t, 2> b{uint8_t(code.scancode >> 8), uint8_t(code.scancode)};
    w.pd(Timing, b.data(), 16);
    w.d.push_back(MitsubishiPause);
    return true;
}

std::optional<IrpCode> irp(const IrCode& c) {
    if (c.protocol != IrProtocol::Mitsubishi)
        return std::nullopt;
    return IrpCode{u"Mitsubishi"_s, c.scancode >> 8, -1, c.scancode & 0xFF};
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    if (!irpNameIs(i.protocol, "Mitsubishi"))
        return std::nullopt;
    return codeOfDF(i, IrProtocol::Mitsubishi, 0xFF, 0xFF, why);
}

} // namespace

const Family MitsubishiFamily{decode, write, frameAgain, irp, fromIrp};

} // namespace irproto
