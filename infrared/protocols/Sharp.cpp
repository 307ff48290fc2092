#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {
namespace {

constexpr double SharpPulse = 320, SharpZero = 680, SharpOne = 1680, SharpEcho = 40000;
// Denon's own timings (264 µs units, 1:3 and 1:7) and frame period.
constexpr double DenonPulse = 264, DenonZero = 792, DenonOne = 1848;
constexpr uint32_t DenonPeriod = 67000;

// One half: 5 address bits, 8 command bits and two check bits, LSB first,
// then a pause (or the end). Returns where the pause is, 0 on a mismatch.
size_t readHalf(const Durations& d, size_t at, uint32_t* value) {
    if (d[at] < 150 || d[at] > 600)
        return 0;
    // The kernel encodes spaces of 680 and 1680 µs, ir-ctl's own encoder the
    // whole bit periods (1000, 2000): the kernel's decoder allows 640 µs on a
    // bit, and so do we, telling the two apart halfway. Denon's remotes send
    // pulses a fifth shorter and spaces longer: read by their own timing.
    PdTiming sharp{0, 0, SharpPulse, SharpZero, SharpOne, 5000};
    sharp.split = (SharpZero + SharpOne) / 2;
    const PdTiming denon{0, 0, DenonPulse, DenonZero, DenonOne, 5000};
    for (const PdTiming& t : {sharp, denon}) {
        Bits bits;
        Judge j;
        j.slack = 330;
        j.scale = unitScale(d, at, t.pulse, true, false, 3000);
        const size_t end = twoPass(j, [&](Judge& jj) -> size_t {
            bits = Bits{};
            const size_t e = readPd(d, at, t, jj, bits);
            return bits.count == 15 ? e : 0;
        });
        if (end) {
            *value = bits.take(0, 15);
            return end;
        }
    }
    return 0;
}

// Sharp and Denon send a half, then after about 40 ms the same with command
// and check bits inverted, and so on while the key is held. The check bits
// tell them apart: Sharp's first half has 1 (then 2), Denon's 0 (then 3).
// Denon remotes also send lone halves, repeated (DecodeIR's Denon{1} and
// Denon{2}); Sharp's take both.
bool decodeSharp(const Durations& d, size_t at, Frame* out) {
    uint32_t first = 0;
    size_t end = readHalf(d, at, &first);
    if (!end)
        return false;
    const uint32_t check = first >> 13;
    const bool inverted = check == 2 || check == 3;
    const uint32_t key = inverted ? first ^ 0x7FE0 : first; // as the first half
    bool normals = !inverted, inverteds = inverted;
    int halves = 1;
    while (end + 1 < d.size() && d[end] >= 20000 && d[end] <= 100000) {
        uint32_t v = 0;
        const size_t e = readHalf(d, end + 1, &v);
        if (!e || (v != key && v != (key ^ 0x7FE0)))
            break;
        (v == key ? normals : inverteds) = true;
        ++halves;
        end = e;
    }
    IrCode& c = out->code;
    c.scancode = (key & 0x1F) << 8 | ((key >> 5) & 0xFF);
    if (key >> 13 == 1) {
        if (!normals || !inverteds)
            return false;
        c.protocol = IrProtocol::Sharp;
    } else {
        c.protocol = normals && inverteds ? IrProtocol::Denon
                     : normals            ? IrProtocol::Denon1
                                          : IrProtocol::Denon2;
    }
    c.repeats =
        halves > (c.protocol == IrProtocol::Sharp || c.protocol == IrProtocol::Denon ? 2 : 1);
    out->end = end;
    return true;
}

bool isDenon(IrProtocol p) {
    return p == IrProtocol::Denon || p == IrProtocol::Denon1 || p == IrProtocol::Denon2;
}

bool write(const IrCode& code, Writer& w) {
    const bool denon = isDenon(code.protocol);
    if (code.protocol != IrProtocol::Sharp && !denon)
        return false;
    const uint32_t sc = code.scancode;
    auto half = [&](bool invert) {
        const uint32_t check = denon ? 0 : 1;
        uint32_t v = ((sc >> 8) & 0x1F) | (sc & 0xFF) << 5 | check << 13;
        if (invert)
            v ^= 0x7FE0;
        const std::array<uint8_t, 2> b{uint8_t(v), uint8_t(v >> 8)};
        const size_t from = w.d.size();
        if (denon) {
            w.pd({0, 0, DenonPulse, DenonZero, DenonOne, 0}, b.data(), 15);
            w.pauseTo(from, DenonPeriod, 20000);
        } else {
            w.pd({0, 0, SharpPulse, SharpZero, SharpOne, 0}, b.data(), 15);
            w.d.push_back(uint32_t(SharpEcho));
        }
    };
    if (code.protocol != IrProtocol::Denon2)
        half(false);
    if (code.protocol != IrProtocol::Denon1)
        half(true);
    return true;
}

// Sharp and Denon {D:5,F:8}; Denon{1} and Denon{2} the same of one half.
std::optional<IrpCode> irp(const IrCode& c) {
    const char* name = c.protocol == IrProtocol::Sharp    ? "Sharp"
                       : c.protocol == IrProtocol::Denon  ? "Denon"
                       : c.protocol == IrProtocol::Denon1 ? "Denon{1}"
                       : c.protocol == IrProtocol::Denon2 ? "Denon{2}"
                                                          : nullptr;
    if (!name)
        return std::nullopt;
    return IrpCode{QString::fromLatin1(name), c.scancode >> 8, -1, c.scancode & 0xFF};
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    IrProtocol p;
    if (irpNameIs(i.protocol, "Sharp"))
        p = IrProtocol::Sharp;
    else if (irpNameIs(i.protocol, "Denon"))
        p = IrProtocol::Denon;
    else if (irpNameIs(i.protocol, "Denon{1}"))
        p = IrProtocol::Denon1;
    else if (irpNameIs(i.protocol, "Denon{2}"))
        p = IrProtocol::Denon2;
    else
        return std::nullopt;
    return codeOfDF(i, p, 0x1F, 0xFF, why);
}

} // namespace

const Family SharpFamily{decodeSharp, write, frameAgain, irp, fromIrp};

} // namespace irproto
