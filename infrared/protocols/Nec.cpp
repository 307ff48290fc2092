#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {
namespace {

constexpr double NecUnit = 563;
constexpr double JvcUnit = 525;
constexpr double AehaUnit = 425;

// Pause to the next frame when a key is held: the frame period of real remotes.
constexpr uint32_t NecPeriod = 108000, JvcPeriod = 60000, AehaPeriod = 130000;
constexpr uint32_t AehaFrameGap = 10000; // between the frames of one message

IrCode necCode(uint32_t a, uint32_t na, uint32_t c, uint32_t nc) {
    IrCode code;
    if ((c ^ nc) != 0xFF) {
        code.protocol = IrProtocol::Nec32;
        code.scancode = na << 24 | a << 16 | nc << 8 | c;
    } else if ((a ^ na) != 0xFF) {
        code.protocol = IrProtocol::Necx;
        code.scancode = a << 16 | na << 8 | c;
    } else {
        code.protocol = IrProtocol::Nec;
        code.scancode = a << 8 | c;
    }
    return code;
}

// Frames with a 9 ms (16T) or 4.5 ms (8T) leader and a NEC-sized unit: NEC,
// its repeat, Samsung, JVC, Sanyo; and AEHA with its own unit.
bool decodeLeader(const Durations& d, size_t at, Frame* out) {
    const size_t n = d.size();
    if (at + 1 >= n)
        return false;
    const double hp = d[at], hs = d[at + 1];
    // Leaders told apart by their lengths, with room for ±25 % and a
    // receiver's clock: 9 ms + 4.5 ms (2.25 ms: NEC's repeat), 4.5 + 4.5 ms,
    // and AEHA's 8T + 4T (8T + 8T: its repeat) with T of 350-500 µs.
    const bool nine = hp > 6000 && hp < 12500;
    const bool middle = hp >= 2000 && hp <= 6000;
    Bits bits;
    // scale: the leader's guess, refined by the bits' pulses.
    auto pd = [&](const PdTiming& t, double scale, double slack) {
        Judge j;
        const double unit = t.pulse * scale;
        j.scale = scale * unitScale(d, at + 2, unit, true, false,
                                    std::min(2 * t.one * scale, 0.75 * t.minGap * scale));
        j.slack = slack;
        return twoPass(j, [&](Judge& jj) {
            bits = Bits{};
            return readPd(d, at, t, jj, bits);
        });
    };
    if (nine && hs >= 3000 && hs < 6500) {
        const PdTiming nec{16 * NecUnit, 8 * NecUnit, NecUnit, NecUnit, 3 * NecUnit, 7 * NecUnit};
        const size_t end = pd(nec, (hp + hs) / (24 * NecUnit), 0.3 * NecUnit);
        if (!end)
            return false;
        out->end = end;
        if (bits.count == 32) {
            out->code = necCode(bits.bytes[0], bits.bytes[1], bits.bytes[2], bits.bytes[3]);
        } else if (bits.count == 16) {
            out->code.protocol = IrProtocol::Jvc;
            out->code.scancode = uint32_t(bits.bytes[0]) << 8 | bits.bytes[1];
        } else if (bits.count == 42) {
            const uint32_t addr = bits.take(0, 13), naddr = bits.take(13, 13);
            const uint32_t cmd = bits.take(26, 8), ncmd = bits.take(34, 8);
            if ((addr ^ naddr) != 0x1FFF || (cmd ^ ncmd) != 0xFF)
                return false;
            out->code.protocol = IrProtocol::Sanyo;
            out->code.scancode = addr << 8 | cmd;
        } else {
            return false;
        }
        return true;
    }
    if (nine && hs >= 1400 && hs < 3000) {
        // NEC's repeat: leader, 2.25 ms, one pulse.
        const PdTiming rep{16 * NecUnit, 4 * NecUnit, NecUnit, NecUnit, 3 * NecUnit, 7 * NecUnit};
        const size_t end = pd(rep, (hp + hs) / (20 * NecUnit), 0.3 * NecUnit);
        if (!end || bits.count != 0)
            return false;
        out->end = end;
        out->repeatOnly = true;
        return true;
    }
    if (middle && hs >= 2600 && hs < 6500) {
        // 8T + 8T: Samsung's leader, or AEHA's repeat.
        const double unit = (hp + hs) / 16;
        const bool samsung = unit > 0.75 * NecUnit && unit < 1.25 * NecUnit;
        const double nominal = samsung ? NecUnit : AehaUnit;
        if (!samsung && (unit < 262 || unit > 625))
            return false;
        const PdTiming t{8 * nominal, 8 * nominal, nominal, nominal, 3 * nominal, 7 * nominal};
        const size_t end = pd(t, unit / nominal, 0.3 * nominal);
        if (!end)
            return false;
        out->end = end;
        if (bits.count == 0) {
            out->repeatOnly = true;
            return true;
        }
        if (!samsung || bits.count != 32 || bits.bytes[0] != bits.bytes[1] ||
            (bits.bytes[2] ^ bits.bytes[3]) != 0xFF)
            return false;
        out->code.protocol = IrProtocol::Samsung32;
        out->code.scancode = uint32_t(bits.bytes[0]) << 8 | bits.bytes[2];
        return true;
    }
    if (middle && hs >= 900 && hs < 2600) {
        // AEHA: 8T + 4T with T of 350-500 µs, measured here.
        const double unit = (hp + hs) / 12;
        if (unit < 262 || unit > 625)
            return false;
        const PdTiming t{8 * AehaUnit, 4 * AehaUnit, AehaUnit, AehaUnit, 3 * AehaUnit, 8000};
        const size_t end = pd(t, unit / AehaUnit, 0.3 * AehaUnit);
        if (!end || bits.count < 24 || bits.count % 8 != 0)
            return false;
        out->end = end;
        out->code.protocol = IrProtocol::Aeha;
        out->code.frames.emplace_back(bits.bytes.begin(), bits.bytes.begin() + bits.count / 8);
        return true;
    }
    return false;
}

bool write(const IrCode& code, Writer& w) {
    const uint32_t sc = code.scancode;
    const size_t from = w.d.size();
    auto nec = [&](double leaderPulse, const std::array<uint8_t, 4>& b) {
        const PdTiming t{leaderPulse, 8 * NecUnit, NecUnit, NecUnit, 3 * NecUnit, 0};
        w.pd(t, b.data(), 32);
        w.pauseTo(from, NecPeriod, uint32_t(10 * NecUnit));
    };
    switch (code.protocol) {
    case IrProtocol::Nec:
        nec(16 * NecUnit, {uint8_t(sc >> 8), uint8_t(~sc >> 8), uint8_t(sc), uint8_t(~sc)});
        break;
    case IrProtocol::Necx:
        nec(16 * NecUnit, {uint8_t(sc >> 16), uint8_t(sc >> 8), uint8_t(sc), uint8_t(~sc)});
        break;
    case IrProtocol::Nec32:
        nec(16 * NecUnit, {uint8_t(sc >> 16), uint8_t(sc >> 24), uint8_t(sc), uint8_t(sc >> 8)});
        break;
    case IrProtocol::Samsung32:
        nec(8 * NecUnit, {uint8_t(sc >> 8), uint8_t(sc >> 8), uint8_t(sc), uint8_t(~sc)});
        break;
    case IrProtocol::Jvc: {
        const std::array<uint8_t, 2> b{uint8_t(sc >> 8), uint8_t(sc)};
        w.pd({16 * JvcUnit, 8 * JvcUnit, JvcUnit, JvcUnit, 3 * JvcUnit, 0}, b.data(), 16);
        w.pauseTo(from, JvcPeriod, uint32_t(35 * JvcUnit));
        break;
    }
    case IrProtocol::Sanyo: {
        Bits bits;
        const uint32_t addr = (sc >> 8) & 0x1FFF, cmd = sc & 0xFF;
        for (int i = 0; i < 13; ++i)
            bits.push((addr >> i) & 1);
        for (int i = 0; i < 13; ++i)
            bits.push(!((addr >> i) & 1));
        for (int i = 0; i < 8; ++i)
            bits.push((cmd >> i) & 1);
        for (int i = 0; i < 8; ++i)
            bits.push(!((cmd >> i) & 1));
        w.pd({16 * NecUnit, 8 * NecUnit, NecUnit, NecUnit, 3 * NecUnit, 0}, bits.bytes.data(), 42);
        w.pauseTo(from, NecPeriod, uint32_t(42 * NecUnit));
        break;
    }
    case IrProtocol::Aeha:
        for (size_t f = 0; f < code.frames.size(); ++f) {
            const auto& b = code.frames[f];
            w.pd({8 * AehaUnit, 4 * AehaUnit, AehaUnit, AehaUnit, 3 * AehaUnit, 0}, b.data(),
                 int(b.size()) * 8);
            if (f + 1 < code.frames.size())
                w.d.push_back(AehaFrameGap);
        }
        w.pauseTo(from, AehaPeriod, AehaFrameGap);
        break;
    default:
        return false;
    }
    return true;
}

bool writeRepeat(const IrCode& code, Writer& w) {
    const size_t from = w.d.size();
    switch (code.protocol) {
    case IrProtocol::Nec:
    case IrProtocol::Necx:
    case IrProtocol::Nec32:
        w.add(16 * NecUnit, 4 * NecUnit);
        w.d.push_back(uint32_t(NecUnit));
        w.pauseTo(from, NecPeriod, uint32_t(10 * NecUnit));
        return true;
    case IrProtocol::Jvc: {
        const std::array<uint8_t, 2> b{uint8_t(code.scancode >> 8), uint8_t(code.scancode)};
        w.pd({0, 0, JvcUnit, JvcUnit, 3 * JvcUnit, 0}, b.data(), 16);
        w.pauseTo(from, JvcPeriod, uint32_t(35 * JvcUnit));
        return true;
    }
    default:
        return false;
    }
}

// NEC1 {D,S=~D,F}: S is the address byte sent second; NEC1-f16 when the
// command is not followed by its complement. Samsung's is NECx1 with S = D,
// the kernel's sanyo Aiwa {D:8,S:5,F}.
std::optional<IrpCode> irp(const IrCode& c) {
    const int64_t sc = c.scancode;
    switch (c.protocol) {
    case IrProtocol::Nec:
        return IrpCode{u"NEC1"_s, sc >> 8, 0xFF - (sc >> 8), sc & 0xFF};
    case IrProtocol::Necx:
        return IrpCode{u"NEC1"_s, sc >> 16, (sc >> 8) & 0xFF, sc & 0xFF};
    case IrProtocol::Nec32: {
        IrpCode i{u"NEC1-f16"_s, (sc >> 16) & 0xFF, sc >> 24, sc & 0xFF};
        i.E = (sc >> 8) & 0xFF;
        return i;
    }
    case IrProtocol::Samsung32:
        return IrpCode{u"NECx1"_s, sc >> 8, sc >> 8, sc & 0xFF};
    case IrProtocol::Jvc:
        return IrpCode{u"JVC"_s, sc >> 8, -1, sc & 0xFF};
    case IrProtocol::Sanyo:
        return IrpCode{u"Aiwa"_s, (sc >> 8) & 0xFF, sc >> 16, sc & 0xFF};
    default:
        return std::nullopt;
    }
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    IrCode c;
    const QString& p = i.protocol;
    const bool nec = irpNameIs(p, "NEC") || irpNameIs(p, "NEC1") || irpNameIs(p, "NEC2");
    const bool f16 =
        irpNameIs(p, "NEC-f16") || irpNameIs(p, "NEC1-f16") || irpNameIs(p, "NEC2-f16");
    const bool necx = irpNameIs(p, "NECx") || irpNameIs(p, "NECx1") || irpNameIs(p, "NECx2");
    if (nec || f16 || necx) {
        const int64_t s = i.S < 0 ? 0xFF - i.D : i.S;
        const int64_t e = i.E < 0 ? 0xFF - i.F : i.E;
        if (!irpRange(i, 'D', i.D, 0xFF, why) || !irpRange(i, 'S', s, 0xFF, why) ||
            !irpRange(i, 'F', i.F, 0xFF, why) || !irpRange(i, 'E', e, 0xFF, why))
            return std::nullopt;
        if (necx) {
            if (s != i.D) {
                if (why)
                    *why = u"%1 with S other than D is not a code we send"_s.arg(p);
                return std::nullopt;
            }
            c.protocol = IrProtocol::Samsung32;
            c.scancode = uint32_t(i.D << 8 | i.F);
        } else if (e != 0xFF - i.F) {
            c.protocol = IrProtocol::Nec32;
            c.scancode = uint32_t(s << 24 | i.D << 16 | e << 8 | i.F);
        } else if (s != 0xFF - i.D) {
            c.protocol = IrProtocol::Necx;
            c.scancode = uint32_t(i.D << 16 | s << 8 | i.F);
        } else {
            c.protocol = IrProtocol::Nec;
            c.scancode = uint32_t(i.D << 8 | i.F);
        }
        return c;
    }
    if (irpNameIs(p, "JVC")) {
        if (!irpRange(i, 'D', i.D, 0xFF, why) || !irpRange(i, 'F', i.F, 0xFF, why))
            return std::nullopt;
        c.protocol = IrProtocol::Jvc;
        c.scancode = uint32_t(i.D << 8 | i.F);
        return c;
    }
    if (irpNameIs(p, "Aiwa") || irpNameIs(p, "NEC42")) {
        const int64_t s = std::max<int64_t>(i.S, 0);
        if (!irpRange(i, 'D', i.D, 0xFF, why) || !irpRange(i, 'S', s, 0x1F, why) ||
            !irpRange(i, 'F', i.F, 0xFF, why))
            return std::nullopt;
        c.protocol = IrProtocol::Sanyo;
        c.scancode = uint32_t(s << 16 | i.D << 8 | i.F);
        return c;
    }
    return std::nullopt;
}

} // namespace

// JVC repeats its 16 bits without the leader.
bool decodeJvcRepeat(const Durations& d, size_t at, uint32_t scancode, size_t* end) {
    Bits bits;
    Judge j;
    j.slack = 0.3 * JvcUnit;
    j.scale = unitScale(d, at, JvcUnit, true, false, 6 * JvcUnit);
    const PdTiming t{0, 0, JvcUnit, JvcUnit, 3 * JvcUnit, 7 * JvcUnit};
    *end = twoPass(j, [&](Judge& jj) {
        bits = Bits{};
        return readPd(d, at, t, jj, bits);
    });
    return *end && bits.count == 16 && (uint32_t(bits.bytes[0]) << 8 | bits.bytes[1]) == scancode;
}

const Family NecFamily{decodeLeader, write, writeRepeat, irp, fromIrp};

} // namespace irproto
