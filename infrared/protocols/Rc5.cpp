#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {
namespace {

constexpr double Rc5Unit = 889;
constexpr uint32_t Rc5Period = 113778;

size_t readRc5(const Durations& d, size_t at, Judge& j, uint32_t* data, bool* extended) {
    Halves h{d, j, Rc5Unit, 2, 6, at};
    // The start bit's first half is the silence before the frame.
    if (!h.start() || h.half(1) != 1)
        return 0;
    uint32_t v = 0;
    *extended = false;
    for (int i = 0; i < (*extended ? 19 : 13); ++i) {
        if (i == 7 && h.space(4))
            *extended = true;
        const int b = h.bit(1);
        if (b < 0)
            return 0;
        v = v << 1 | uint32_t(b == 0); // space first: 1
    }
    *data = v;
    return h.atPause() ? h.at : 0;
}

bool decodeRc5(const Durations& d, size_t at, Frame* out) {
    if (d[at] < 400 || d[at] > 2400)
        return false;
    uint32_t v = 0;
    bool x = false;
    Judge j;
    j.slack = 0.3 * Rc5Unit;
    j.scale = unitScale(d, at, Rc5Unit, true, true, 6.5 * Rc5Unit);
    const size_t end = twoPass(j, [&](Judge& jj) { return readRc5(d, at, jj, &v, &x); });
    if (!end)
        return false;
    IrCode& c = out->code;
    if (x) { // field, toggle, system 5, command 6, extra 6
        const uint32_t command = ((v >> 6) & 0x3F) | ((v >> 18) & 1 ? 0 : 0x40);
        c.protocol = IrProtocol::Rc5x20;
        c.scancode = ((v >> 12) & 0x1F) << 16 | command << 8 | (v & 0x3F);
        c.toggle = (v >> 17) & 1;
    } else { // field, toggle, system 5, command 6
        const uint32_t command = (v & 0x3F) | ((v >> 12) & 1 ? 0 : 0x40);
        c.protocol = IrProtocol::Rc5;
        c.scancode = ((v >> 6) & 0x1F) << 8 | command;
        c.toggle = (v >> 11) & 1;
    }
    out->end = end;
    return true;
}

bool write(const IrCode& code, Writer& w) {
    const uint32_t sc = code.scancode;
    const size_t from = w.d.size();
    switch (code.protocol) {
    case IrProtocol::Rc5:
    case IrProtocol::Rc5x20: {
        const bool x = code.protocol == IrProtocol::Rc5x20;
        const uint32_t command = x ? (sc >> 8) & 0x7F : sc & 0x7F;
        const uint32_t system = x ? (sc >> 16) & 0x1F : (sc >> 8) & 0x1F;
        uint32_t v = uint32_t(!(command & 0x40)) << 12 | uint32_t(code.toggle) << 11 | system << 6 |
                     (command & 0x3F);
        int nbits = 13;
        if (x) {
            v = v << 6 | (sc & 0x3F);
            nbits = 19;
        }
        w.level(true, Rc5Unit);
        for (int i = nbits - 1; i >= 0; --i) {
            if (x && i == 11)
                w.level(false, 4 * Rc5Unit);
            const bool one = (v >> i) & 1;
            w.level(!one, Rc5Unit);
            w.level(one, Rc5Unit);
        }
        w.pauseTo(from, Rc5Period, uint32_t(10 * Rc5Unit));
        break;
    }
    default:
        return false;
    }
    return true;
}

// RC5 {D:5,F:7}, RC5x {D:5,S:7,F:6}: the kernel's system, command and extra.
std::optional<IrpCode> irp(const IrCode& c) {
    const int64_t sc = c.scancode;
    if (c.protocol == IrProtocol::Rc5)
        return IrpCode{u"RC5"_s, sc >> 8, -1, sc & 0x7F};
    if (c.protocol == IrProtocol::Rc5x20)
        return IrpCode{u"RC5x"_s, sc >> 16, (sc >> 8) & 0x7F, sc & 0x3F};
    return std::nullopt;
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    IrCode c;
    if (irpNameIs(i.protocol, "RC5")) {
        if (!irpRange(i, 'D', i.D, 0x1F, why) || !irpRange(i, 'F', i.F, 0x7F, why))
            return std::nullopt;
        c.protocol = IrProtocol::Rc5;
        c.scancode = uint32_t(i.D << 8 | i.F);
        return c;
    }
    if (irpNameIs(i.protocol, "RC5x")) {
        if (!irpRange(i, 'D', i.D, 0x1F, why) || !irpRange(i, 'S', i.S, 0x7F, why) ||
            !irpRange(i, 'F', i.F, 0x3F, why))
            return std::nullopt;
        c.protocol = IrProtocol::Rc5x20;
        c.scancode = uint32_t(i.D << 16 | i.S << 8 | i.F);
        return c;
    }
    return std::nullopt;
}

} // namespace

const Family Rc5Family{decodeRc5, write, frameAgain, irp, fromIrp};

} // namespace irproto
