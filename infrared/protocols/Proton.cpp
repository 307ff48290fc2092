#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

// Proton: {38.5k,500}<1,-1|1,-3>(16,-8,D:8,1,-8,F:8,1,^63m).
namespace irproto {
namespace {

constexpr double Unit = 500;
constexpr uint32_t Period = 63000;
const PdTiming Head{16 * Unit, 8 * Unit, Unit, Unit, 3 * Unit, 6 * Unit};
const PdTiming Tail{0, 0, Unit, Unit, 3 * Unit, 8 * Unit};

bool decode(const Durations& d, size_t at, Frame* out) {
    if (at + 1 >= d.size() || d[at] < 5600 || d[at] > 10400 || d[at + 1] < 2800 || d[at + 1] > 5200)
        return false;
    Bits device, function;
    Judge j;
    j.slack = 0.3 * Unit;
    j.scale = unitScale(d, at + 2, Unit, true, false, 6 * Unit);
    const size_t end = twoPass(j, [&](Judge& jj) -> size_t {
        device = Bits{};
        function = Bits{};
        const size_t mid = readPd(d, at, Head, jj, device);
        if (!mid || device.count != 8 || mid + 1 >= d.size() || !jj.near(d[mid], 8 * Unit))
            return 0;
        jj.count(d[mid], 8 * Unit);
        const size_t end = readPd(d, mid + 1, Tail, jj, function);
        return function.count == 8 ? end : 0;
    });
    if (!end)
        return false;
    out->code.protocol = IrProtocol::Proton;
    out->code.scancode = uint32_t(device.bytes[0]) << 8 | function.bytes[0];
    out->end = end;
    return true;
}

bool write(const IrCode& code, Writer& w) {
    if (code.protocol != IrProtocol::Proton)
        return false;
    const size_t from = w.d.size();
    const uint8_t dev = uint8_t(code.scancode >> 8), fn = uint8_t(code.scancode);
    w.pd(Head, &dev, 8);
    w.d.push_back(uint32_t(8 * Unit));
    w.pd(Tail, &fn, 8);
    w.pauseTo(from, Period, uint32_t(8 * Unit));
    return true;
}

std::optional<IrpCode> irp(const IrCode& c) {
    if (c.protocol != IrProtocol::Proton)
        return std::nullopt;
    return IrpCode{u"Proton"_s, c.scancode >> 8, -1, c.scancode & 0xFF};
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    if (!irpNameIs(i.protocol, "Proton"))
        return std::nullopt;
    return codeOfDF(i, IrProtocol::Proton, 0xFF, 0xFF, why);
}

} // namespace

const Family ProtonFamily{decode, write, frameAgain, irp, fromIrp};

} // namespace irproto
