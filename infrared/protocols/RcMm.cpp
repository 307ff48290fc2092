#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {
namespace {

// RC-MM (the kernel's rc-mm-12/24/32; Nokia12, Nokia and Nokia32 in IRP): a
// 417/278 µs leader, then two bits a symbol, MSB first, as a 167 µs pulse and
// a space of 278 µs plus 0 to 3 times 167, then a pulse. Symbols are 167 µs
// apart, which no scale-relative tolerance keeps apart: judged, as the
// kernel does, within half of that, on pulse and space together since
// receivers lengthen one by what they take from the other.
constexpr double Tick = 1e6 / 36000; // µs
constexpr double Pulse = 6 * Tick, Step = 6 * Tick, Space0 = 10 * Tick;
constexpr double LeaderPulse = 15 * Tick, LeaderSpace = 10 * Tick;
constexpr uint32_t RcMmPeriod = 100000;
constexpr uint32_t ToggleBit = 0x8000;

// The symbols from `at` with a scale; a loose pass rounds each symbol to the
// nearest and measures the scale, a strict one judges within half a step.
bool readSymbols(const Durations& d, size_t at, double* scale, bool strict, uint32_t* value,
                 int* symbols, size_t* closing) {
    double measured = 0, nominal = 0;
    uint32_t v = 0;
    int n = 0;
    size_t i = at + 2;
    for (;; i += 2) {
        if (i >= d.size() || d[i] < 0.4 * Pulse * *scale || d[i] > 2 * Pulse * *scale)
            return false;
        if (i + 1 >= d.size() || d[i + 1] > 1400 * *scale)
            break; // the closing pulse
        const double period = (d[i] + d[i + 1]) / *scale;
        const long k = std::clamp(std::lround((period - Pulse - Space0) / Step), 0L, 3L);
        const double want = Pulse + Space0 + double(k) * Step;
        if ((strict && std::abs(period - want) > Step / 2) || ++n > 16)
            return false;
        measured += d[i] + d[i + 1];
        nominal += want;
        v = v << 2 | uint32_t(k);
    }
    if (n == 0)
        return false;
    *scale = measured / nominal;
    *value = v;
    *symbols = n;
    *closing = i;
    return true;
}

bool decode(const Durations& d, size_t at, Frame* out) {
    if (d[at] < 300 || d[at] > 600 || at + 1 >= d.size() || d[at + 1] < 150 || d[at + 1] > 420)
        return false;
    double scale = (d[at] + d[at + 1]) / (LeaderPulse + LeaderSpace);
    uint32_t v = 0;
    int symbols = 0;
    size_t i = 0;
    if (!readSymbols(d, at, &scale, false, &v, &symbols, &i) || scale < 0.7 || scale > 1.4 ||
        !readSymbols(d, at, &scale, true, &v, &symbols, &i))
        return false;
    IrCode& c = out->code;
    switch (symbols) {
    case 6:
        c.protocol = IrProtocol::RcMm12;
        break;
    case 12:
        c.protocol = IrProtocol::RcMm24;
        break;
    case 16:
        c.protocol = IrProtocol::RcMm32;
        c.toggle = (v & ToggleBit) != 0;
        v &= ~ToggleBit;
        break;
    default:
        return false;
    }
    c.scancode = v;
    out->end = std::min(i + 1, d.size());
    return true;
}

bool write(const IrCode& code, Writer& w) {
    int symbols = 0;
    switch (code.protocol) {
    case IrProtocol::RcMm12:
        symbols = 6;
        break;
    case IrProtocol::RcMm24:
        symbols = 12;
        break;
    case IrProtocol::RcMm32:
        symbols = 16;
        break;
    default:
        return false;
    }
    const uint32_t v = code.scancode | (code.toggle && symbols == 16 ? ToggleBit : 0);
    const size_t from = w.d.size();
    w.add(LeaderPulse, LeaderSpace);
    for (int s = symbols - 1; s >= 0; --s)
        w.add(Pulse, Space0 + ((v >> (2 * s)) & 3) * Step);
    w.d.push_back(uint32_t(std::lround(Pulse)));
    w.pauseTo(from, RcMmPeriod, 20000);
    return true;
}

// Nokia12 {D:4,F:8}, Nokia {D:8,S:8,F:8}, Nokia32 {D:8,S:8,T:1,X:7,F:8}
// with T as the code's toggle.
std::optional<IrpCode> irp(const IrCode& c) {
    const int64_t sc = c.scancode;
    switch (c.protocol) {
    case IrProtocol::RcMm12:
        return IrpCode{u"Nokia12"_s, sc >> 8, -1, sc & 0xFF};
    case IrProtocol::RcMm24:
        return IrpCode{u"Nokia"_s, sc >> 16, (sc >> 8) & 0xFF, sc & 0xFF};
    case IrProtocol::RcMm32: {
        IrpCode i{u"Nokia32"_s, sc >> 24, (sc >> 16) & 0xFF, sc & 0xFF};
        i.X = (sc >> 8) & 0x7F;
        return i;
    }
    default:
        return std::nullopt;
    }
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    IrCode c;
    if (irpNameIs(i.protocol, "Nokia12")) {
        if (!irpRange(i, 'D', i.D, 0xF, why) || !irpRange(i, 'F', i.F, 0xFF, why))
            return std::nullopt;
        c.protocol = IrProtocol::RcMm12;
        c.scancode = uint32_t(i.D << 8 | i.F);
        return c;
    }
    const bool n32 = irpNameIs(i.protocol, "Nokia32");
    if (!n32 && !irpNameIs(i.protocol, "Nokia"))
        return std::nullopt;
    const int64_t x = n32 ? std::max<int64_t>(i.X, 0) : 0;
    if (!irpRange(i, 'D', i.D, 0xFF, why) || !irpRange(i, 'S', i.S, 0xFF, why) ||
        !irpRange(i, 'F', i.F, 0xFF, why) || !irpRange(i, 'X', x, 0x7F, why))
        return std::nullopt;
    c.protocol = n32 ? IrProtocol::RcMm32 : IrProtocol::RcMm24;
    c.scancode =
        n32 ? uint32_t(i.D << 24 | i.S << 16 | x << 8 | i.F) : uint32_t(i.D << 16 | i.S << 8 | i.F);
    return c;
}

} // namespace

const Family RcMmFamily{decode, write, frameAgain, irp, fromIrp};

} // namespace irproto
