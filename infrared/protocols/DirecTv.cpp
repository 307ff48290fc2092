#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {
namespace {

// DirecTV {38k,600,msb}<1,-1|1,-2|2,-1|2,-2>([10][5],-2,D:4,F:8,C:4,1,-50)+:
// each pulse and space of one or two units carries a bit, MSB first; the
// first frame has a 10-unit leader, its repeats a 5-unit one.
constexpr double Unit = 600;
constexpr uint32_t DirecTvPause = 50 * 600;

uint32_t checksum(uint32_t f) {
    return (7 * ((f >> 6) & 3) + 5 * ((f >> 4) & 3) + 3 * ((f >> 2) & 3) + (f & 3)) & 0xF;
}

// One frame at `at` with a leader of `leader` units: its 16 bits, or 0.
size_t readFrame(const Durations& d, size_t at, int leader, uint32_t* value) {
    if (at + 1 >= d.size())
        return 0;
    Judge j;
    j.slack = 0.35 * Unit;
    j.scale = unitScale(d, at + 2, Unit, true, true, 3 * Unit);
    return twoPass(j, [&](Judge& jj) -> size_t {
        // The leader only tells first frames (10 units) from repeats (5).
        const double want = leader * Unit * jj.scale;
        if (std::abs(d[at] - want) > 0.4 * want || !jj.near(d[at + 1], 2 * Unit))
            return 0;
        jj.count(d[at + 1], 2 * Unit);
        uint32_t v = 0;
        size_t i = at + 2;
        for (int n = 0; n < 16; ++n, ++i) {
            if (i >= d.size())
                return 0;
            const double units = d[i] > 4.0 / 3 * Unit * jj.scale ? 2 : 1; // relatively halfway
            if (!jj.near(d[i], units * Unit))
                return 0;
            jj.count(d[i], units * Unit);
            v = v << 1 | uint32_t(units == 2);
        }
        if (i >= d.size() || !jj.near(d[i], Unit))
            return 0;
        *value = v;
        ++i;
        return i >= d.size() || d[i] > 6 * Unit * jj.scale ? std::min(i, d.size()) : 0;
    });
}

bool decode(const Durations& d, size_t at, Frame* out) {
    if (d[at] < 4000 || d[at] > 8000)
        return false;
    uint32_t v = 0;
    size_t end = readFrame(d, at, 10, &v);
    if (!end || checksum(v >> 4) != (v & 0xF))
        return false;
    while (end + 1 < d.size()) {
        uint32_t again = 0;
        const size_t e = readFrame(d, end + 1, 5, &again);
        if (!e || again != v)
            break;
        out->code.repeats = true;
        end = e;
    }
    out->code.protocol = IrProtocol::DirecTv;
    out->code.scancode = v >> 4;
    out->end = end;
    return true;
}

void writeFrame(const IrCode& code, Writer& w, int leader) {
    const uint32_t v = code.scancode << 4 | checksum(code.scancode & 0xFF);
    w.add(leader * Unit, 2 * Unit);
    for (int i = 14; i >= 0; i -= 2)
        w.add((v >> (i + 1)) & 1 ? 2 * Unit : Unit, (v >> i) & 1 ? 2 * Unit : Unit);
    w.add(Unit, DirecTvPause);
}

bool write(const IrCode& code, Writer& w) {
    if (code.protocol != IrProtocol::DirecTv)
        return false;
    writeFrame(code, w, 10);
    return true;
}

bool writeRepeat(const IrCode& code, Writer& w) {
    if (code.protocol != IrProtocol::DirecTv)
        return false;
    writeFrame(code, w, 5);
    return true;
}

// DirecTV {D:4,F:8}, the check nibble computed.
std::optional<IrpCode> irp(const IrCode& c) {
    if (c.protocol != IrProtocol::DirecTv)
        return std::nullopt;
    return IrpCode{u"DirecTV"_s, c.scancode >> 8, -1, c.scancode & 0xFF};
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    if (!irpNameIs(i.protocol, "DirecTV"))
        return std::nullopt;
    return codeOfDF(i, IrProtocol::DirecTv, 0xF, 0xFF, why);
}

} // namespace

const Family DirecTvFamily{decode, write, writeRepeat, irp, fromIrp};

} // namespace irproto
