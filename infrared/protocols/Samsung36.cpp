#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

// Samsung36: {37.9k,560}<1,-1|1,-3>(4500u,-4500u,D:8,S:8,1,-9,E:4,F:8,~F:8,1,
// ^108m), scancode D<<24|S<<16|E<<8|F.
namespace irproto {
namespace {

constexpr double Unit = 560;
constexpr uint32_t Period = 108000;
const PdTiming Head{4500, 4500, Unit, Unit, 3 * Unit, 9 * Unit};
const PdTiming Tail{0, 0, Unit, Unit, 3 * Unit, 9 * Unit};

bool decode(const Durations& d, size_t at, Frame* out) {
    if (at + 1 >= d.size() || d[at] < 3200 || d[at] > 5800 || d[at + 1] < 3200 || d[at + 1] > 5800)
        return false;
    Bits head, tail;
    Judge j;
    j.slack = 0.3 * Unit;
    j.scale = unitScale(d, at + 2, Unit, true, false, 6 * Unit);
    const size_t end = twoPass(j, [&](Judge& jj) -> size_t {
        head = Bits{};
        tail = Bits{};
        const size_t mid = readPd(d, at, Head, jj, head);
        if (!mid || head.count != 16 || mid + 1 >= d.size() || !jj.near(d[mid], 9 * Unit))
            return 0;
        jj.count(d[mid], 9 * Unit);
        const size_t end = readPd(d, mid + 1, Tail, jj, tail);
        return tail.count == 20 ? end : 0;
    });
    if (!end)
        return false;
    const uint32_t e = tail.take(0, 4), f = tail.take(4, 8);
    if ((f ^ tail.take(12, 8)) != 0xFF)
        return false;
    out->code.protocol = IrProtocol::Samsung36;
    out->code.scancode = uint32_t(head.bytes[0]) << 24 | uint32_t(head.bytes[1]) << 16 | e << 8 | f;
    out->end = end;
    return true;
}

bool write(const IrCode& code, Writer& w) {
    if (code.protocol != IrProtocol::Samsung36)
        return false;
    const size_t from = w.d.size();
    const uint32_t sc = code.scancode;
    const std::array<uint8_t, 2> head{uint8_t(sc >> 24), uint8_t(sc >> 16)};
    const uint32_t v = (sc >> 8 & 0xF) | (sc & 0xFF) << 4 | (~sc & 0xFF) << 12;
    const std::array<uint8_t, 3> tail{uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16)};
    w.pd(Head, head.data(), 16);
    w.d.push_back(uint32_t(9 * Unit));
    w.pd(Tail, tail.data(), 20);
    w.pauseTo(from, Period, uint32_t(9 * Unit));
    return true;
}

std::optional<IrpCode> irp(const IrCode& c) {
    if (c.protocol != IrProtocol::Samsung36)
        return std::nullopt;
    const int64_t sc = c.scancode;
    IrpCode i{u"Samsung36"_s, sc >> 24, (sc >> 16) & 0xFF, sc & 0xFF};
    i.E = (sc >> 8) & 0xF;
    return i;
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    if (!irpNameIs(i.protocol, "Samsung36"))
        return std::nullopt;
    const int64_t e = std::max<int64_t>(i.E, 0);
    if (!irpRange(i, 'D', i.D, 0xFF, why) || !irpRange(i, 'S', i.S, 0xFF, why) ||
        !irpRange(i, 'F', i.F, 0xFF, why) || !irpRange(i, 'E', e, 0xF, why))
        return std::nullopt;
    IrCode c;
    c.protocol = IrProtocol::Samsung36;
    c.scancode = uint32_t(i.D << 24 | i.S << 16 | e << 8 | i.F);
    return c;
}

} // namespace

const Family Samsung36Family{decode, write, frameAgain, irp, fromIrp};

} // namespace irproto
