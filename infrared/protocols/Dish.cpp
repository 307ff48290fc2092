#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {
namespace {

// Dish_Network {57.6k,400}<1,-7|1,-4>(1,-15,(F:-6,S:5,D:5,1,-15)+): a lone
// pulse, then 16-bit groups each ending in a pulse and 6 ms, sent at least
// once. A zero has the longer space: read as pulse distance with the two
// swapped.
constexpr double Unit = 400;
const PdTiming Timing{Unit, 15 * Unit, Unit, 4 * Unit, 7 * Unit, 11 * Unit};

uint32_t group(const Bits& b) { // bits as read: 1 for the long space, a zero
    uint32_t v = 0;
    for (int i = 0; i < 16; ++i)
        v |= uint32_t(b.takeMsb(i, 1) == 0) << i;
    return v; // F reversed in bits 0-5, S in 6-10, D in 11-15
}

size_t readGroup(const Durations& d, size_t at, bool leader, uint32_t* v) {
    PdTiming t = Timing;
    if (!leader)
        t.leaderPulse = t.leaderSpace = 0;
    Bits bits;
    Judge j;
    j.slack = 150;
    j.scale = unitScale(d, leader ? at + 2 : at, Unit, true, false, 11 * Unit);
    const size_t end = twoPass(j, [&](Judge& jj) -> size_t {
        bits = Bits{};
        const size_t e = readPd(d, at, t, jj, bits);
        return bits.count == 16 ? e : 0;
    });
    *v = group(bits);
    return end;
}

bool decode(const Durations& d, size_t at, Frame* out) {
    if (d[at] < 200 || d[at] > 700 || at + 1 >= d.size() || d[at + 1] < 4500 || d[at + 1] > 8000)
        return false;
    uint32_t v = 0;
    size_t end = readGroup(d, at, true, &v);
    if (!end)
        return false;
    while (end + 1 < d.size()) {
        uint32_t again = 0;
        const size_t e = readGroup(d, end + 1, false, &again);
        if (!e || again != v)
            break;
        out->code.repeats = true;
        end = e;
    }
    uint32_t f = 0;
    for (int i = 0; i < 6; ++i)
        f |= ((v >> i) & 1) << (5 - i);
    out->code.protocol = IrProtocol::Dish;
    out->code.scancode = (v >> 11) << 16 | ((v >> 6) & 0x1F) << 8 | f;
    out->end = end;
    return true;
}

void writeGroup(const IrCode& code, Writer& w) {
    const uint32_t sc = code.scancode;
    auto field = [&](uint32_t value, int n, bool msb) {
        for (int i = 0; i < n; ++i) {
            const bool one = (value >> (msb ? n - 1 - i : i)) & 1;
            w.add(Unit, one ? 4 * Unit : 7 * Unit);
        }
    };
    field(sc & 0x3F, 6, true);
    field((sc >> 8) & 0x1F, 5, false);
    field((sc >> 16) & 0x1F, 5, false);
    w.add(Unit, 15 * Unit);
}

bool write(const IrCode& code, Writer& w) {
    if (code.protocol != IrProtocol::Dish)
        return false;
    w.add(Unit, 15 * Unit);
    writeGroup(code, w);
    return true;
}

bool writeRepeat(const IrCode& code, Writer& w) {
    if (code.protocol != IrProtocol::Dish)
        return false;
    writeGroup(code, w);
    return true;
}

// Dish_Network {D:5,S:5,F:6}.
std::optional<IrpCode> irp(const IrCode& c) {
    if (c.protocol != IrProtocol::Dish)
        return std::nullopt;
    return IrpCode{u"Dish_Network"_s, c.scancode >> 16, (c.scancode >> 8) & 0x1F,
                   c.scancode & 0x3F};
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    if (!irpNameIs(i.protocol, "Dish_Network") && !irpNameIs(i.protocol, "Dish"))
        return std::nullopt;
    if (!irpRange(i, 'D', i.D, 0x1F, why) || !irpRange(i, 'S', i.S, 0x1F, why) ||
        !irpRange(i, 'F', i.F, 0x3F, why))
        return std::nullopt;
    IrCode c;
    c.protocol = IrProtocol::Dish;
    c.scancode = uint32_t(i.D << 16 | i.S << 8 | i.F);
    return c;
}

} // namespace

const Family DishFamily{decode, write, writeRepeat, irp, fromIrp};

} // namespace irproto
