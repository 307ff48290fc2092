#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {
namespace {

constexpr double Rc6Unit = 444;
constexpr uint32_t Rc6Period = 106667;

constexpr uint32_t Rc6MceToggle = 0x8000;

bool isMceCustomer(uint32_t scancode) {
    const uint32_t customer = scancode & 0xFFFF0000;
    return customer == 0x800F0000 || customer == 0x80340000 || customer == 0x80460000;
}

size_t readRc6(const Durations& d, size_t at, Judge& j, int* mode, bool* toggle, uint32_t* data,
               int* count) {
    if (at + 1 >= d.size() || !j.near(d[at], 6 * Rc6Unit) || !j.near(d[at + 1], 2 * Rc6Unit))
        return 0;
    j.count(d[at], 6 * Rc6Unit);
    j.count(d[at + 1], 2 * Rc6Unit);
    Halves h{d, j, Rc6Unit, 3, 3, at + 2};
    if (!h.start())
        return 0;
    int header = 0;
    for (int i = 0; i < 4; ++i) {
        const int b = h.bit(1);
        if (b < 0)
            return 0;
        header = header << 1 | b;
    }
    const int t = h.bit(2);
    if (t < 0 || !(header & 8))
        return 0;
    *mode = header & 7;
    *toggle = t;
    const int wanted = *mode == 0 ? 16 : 32;
    uint32_t v = 0;
    int n = 0;
    for (; n < wanted; ++n) {
        if (*mode != 0 && n > 0 && h.atPause())
            break;
        const int b = h.bit(1);
        if (b < 0)
            return 0;
        v = v << 1 | uint32_t(b);
    }
    *data = v;
    *count = n;
    return h.atPause() ? h.at : 0;
}

bool decodeRc6(const Durations& d, size_t at, Frame* out) {
    if (at + 1 >= d.size() || d[at] < 1800 || d[at] > 3600)
        return false;
    int mode = 0, count = 0;
    bool toggle = false;
    uint32_t v = 0;
    Judge j;
    j.scale = unitScale(d, at + 2, Rc6Unit, true, true, 3.5 * Rc6Unit);
    j.slack = 0.3 * Rc6Unit;
    const size_t end =
        twoPass(j, [&](Judge& jj) { return readRc6(d, at, jj, &mode, &toggle, &v, &count); });
    if (!end)
        return false;
    IrCode& c = out->code;
    if (mode == 0) {
        c.protocol = IrProtocol::Rc6_0;
        c.scancode = v;
        c.toggle = toggle;
    } else if (mode == 6 && !toggle && count == 20) {
        c.protocol = IrProtocol::Rc6_6a20;
        c.scancode = v;
    } else if (mode == 6 && !toggle && count == 24) {
        c.protocol = IrProtocol::Rc6_6a24;
        c.scancode = v;
    } else if (mode == 6 && !toggle && count == 32) {
        const bool mce = isMceCustomer(v);
        c.protocol = mce ? IrProtocol::Rc6Mce : IrProtocol::Rc6_6a32;
        c.toggle = mce && (v & Rc6MceToggle);
        c.scancode = mce ? v & ~Rc6MceToggle : v;
    } else {
        return false;
    }
    out->end = end;
    return true;
}

bool write(const IrCode& code, Writer& w) {
    const uint32_t sc = code.scancode;
    const size_t from = w.d.size();
    switch (code.protocol) {
    case IrProtocol::Rc6_0:
    case IrProtocol::Rc6_6a20:
    case IrProtocol::Rc6_6a24:
    case IrProtocol::Rc6_6a32:
    case IrProtocol::Rc6Mce: {
        const bool mode0 = code.protocol == IrProtocol::Rc6_0;
        const int nbits = mode0                                   ? 16
                          : code.protocol == IrProtocol::Rc6_6a20 ? 20
                          : code.protocol == IrProtocol::Rc6_6a24 ? 24
                                                                  : 32;
        const uint32_t v =
            code.protocol == IrProtocol::Rc6Mce && code.toggle ? sc | Rc6MceToggle : sc;
        auto bit = [&](bool one, double unit) {
            w.level(one, unit);
            w.level(!one, unit);
        };
        w.level(true, 6 * Rc6Unit);
        w.level(false, 2 * Rc6Unit);
        const int header = mode0 ? 8 : 8 | 6;
        for (int i = 3; i >= 0; --i)
            bit((header >> i) & 1, Rc6Unit);
        bit(mode0 && code.toggle, 2 * Rc6Unit);
        for (int i = nbits - 1; i >= 0; --i)
            bit((v >> i) & 1, Rc6Unit);
        w.pauseTo(from, Rc6Period, uint32_t(6 * Rc6Unit));
        break;
    }
    default:
        return false;
    }
    return true;
}

// RC6 {D:8,F:8}; RC6-6-20 {D:8,S:4,F:8}; RC6-6-24 {D:8,S:8,F:8}; MCE
// {OEM1=128,S:8,T,D:7,F:8}; other 32-bit customers RC6-6-32 with the
// customer code as S.
std::optional<IrpCode> irp(const IrCode& c) {
    const int64_t sc = c.scancode;
    switch (c.protocol) {
    case IrProtocol::Rc6_0:
        return IrpCode{u"RC6"_s, sc >> 8, -1, sc & 0xFF};
    case IrProtocol::Rc6_6a20:
        return IrpCode{u"RC6-6-20"_s, sc >> 12, (sc >> 8) & 0xF, sc & 0xFF};
    case IrProtocol::Rc6_6a24:
        return IrpCode{u"RC6-6-24"_s, sc >> 16, (sc >> 8) & 0xFF, sc & 0xFF};
    case IrProtocol::Rc6Mce:
        return IrpCode{u"MCE"_s, (sc >> 8) & 0x7F, (sc >> 16) & 0xFF, sc & 0xFF};
    case IrProtocol::Rc6_6a32:
        return IrpCode{u"RC6-6-32"_s, (sc >> 8) & 0xFF, sc >> 16, sc & 0xFF};
    default:
        return std::nullopt;
    }
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    IrCode c;
    const QString& p = i.protocol;
    auto range = [&](int64_t dMax, int64_t sMax) {
        return irpRange(i, 'D', i.D, dMax, why) &&
               (sMax == 0 || irpRange(i, 'S', i.S, sMax, why)) && irpRange(i, 'F', i.F, 0xFF, why);
    };
    if (irpNameIs(p, "RC6") || irpNameIs(p, "RC6-0-16")) {
        if (!range(0xFF, 0))
            return std::nullopt;
        c.protocol = IrProtocol::Rc6_0;
        c.scancode = uint32_t(i.D << 8 | i.F);
    } else if (irpNameIs(p, "RC6-6-20")) {
        if (!range(0xFF, 0xF))
            return std::nullopt;
        c.protocol = IrProtocol::Rc6_6a20;
        c.scancode = uint32_t(i.D << 12 | i.S << 8 | i.F);
    } else if (irpNameIs(p, "RC6-6-24")) {
        if (!range(0xFF, 0xFF))
            return std::nullopt;
        c.protocol = IrProtocol::Rc6_6a24;
        c.scancode = uint32_t(i.D << 16 | i.S << 8 | i.F);
    } else if (irpNameIs(p, "MCE")) {
        if (!range(0x7F, 0xFF))
            return std::nullopt;
        c.scancode =
            uint32_t(0x80000000u | uint32_t(i.S) << 16 | uint32_t(i.D) << 8 | uint32_t(i.F));
        c.protocol = isMceCustomer(c.scancode) ? IrProtocol::Rc6Mce : IrProtocol::Rc6_6a32;
    } else if (irpNameIs(p, "RC6-6-32")) {
        if (!range(0xFF, 0xFFFF))
            return std::nullopt;
        c.scancode = uint32_t(i.S) << 16 | uint32_t(i.D) << 8 | uint32_t(i.F);
        c.protocol = isMceCustomer(c.scancode) ? IrProtocol::Rc6Mce : IrProtocol::Rc6_6a32;
    } else {
        return std::nullopt;
    }
    return c;
}

} // namespace

const Family Rc6Family{decodeRc6, write, frameAgain, irp, fromIrp};

} // namespace irproto
