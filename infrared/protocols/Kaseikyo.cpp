#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

// The Kaseikyo family: six-byte AEHA frames whose first two bytes name the
// maker. The frames are read and written as aeha; this family only gives them
// the IR databases' names and parameters, and makes them from those.
namespace irproto {
namespace {

struct Field {
    int at = 0, width = 0; // in bits, LSB first from the frame's start
    uint64_t get(uint64_t v) const { return width ? (v >> at) & ((1u << width) - 1) : 0; }
    uint64_t put(int64_t x) const { return width ? uint64_t(x) << at : 0; }
};

uint64_t nib(uint64_t x, int i) {
    return (x >> (4 * i)) & 0xF;
}

// The constant bits and check of a frame, given the maker and fields.
using Rest = uint64_t (*)(uint64_t m, uint64_t n, uint64_t d, uint64_t s, uint64_t f, uint64_t e);

struct Variant {
    const char* name;
    int m, n; // maker bytes; -1: the M and N parameters (Kaseikyo itself)
    Field d, s, f, e;
    int sIsD;     // S defaults to D (Fujitsu)
    int eDefault; // -1: no E
    Rest rest;
};

uint64_t xorCheck(uint64_t, uint64_t, uint64_t d, uint64_t s, uint64_t f, uint64_t) {
    return (d ^ s ^ f) << 40;
}

// Frames as the IRP list has them (IrpTransmogrifier's IrpProtocols.xml).
const Variant Variants[] = {
    // {37k,432} ..., 2:8,32:8,D:8,S:8,F:8,(D^S^F):8
    {"Panasonic", 0x02, 0x20, {16, 8}, {24, 8}, {32, 8}, {}, 0, -1, xorCheck},
    {"JVC-48", 0x03, 0x01, {16, 8}, {24, 8}, {32, 8}, {}, 0, -1, xorCheck},
    // 84:8,50:8,0:4,D:4,S:4,F:12, the three bytes' XOR
    {"Denon-K",
     0x54,
     0x32,
     {20, 4},
     {24, 4},
     {28, 12},
     {},
     0,
     -1,
     [](uint64_t, uint64_t, uint64_t d, uint64_t s, uint64_t f, uint64_t) -> uint64_t {
         return ((d << 4 ^ s ^ f << 4 ^ f >> 4) & 0xFF) << 40;
     }},
    // 170:8,90:8,15:4,D:4,S:8,F:8,E:4,C:4; C = XOR of the nibbles
    {"SharpDVD",
     0xAA,
     0x5A,
     {20, 4},
     {24, 8},
     {32, 8},
     {40, 4},
     0,
     1,
     [](uint64_t, uint64_t, uint64_t d, uint64_t s, uint64_t f, uint64_t e) -> uint64_t {
         return 0xF << 16 | (d ^ nib(s, 0) ^ nib(s, 1) ^ nib(f, 0) ^ nib(f, 1) ^ e) << 44;
     }},
    // 67:8,83:8,1:4,D:4,S:8,F:8,T:8; T the sum of D and the nibbles
    {"Teac-K",
     0x43,
     0x53,
     {20, 4},
     {24, 8},
     {32, 8},
     {},
     0,
     -1,
     [](uint64_t, uint64_t, uint64_t d, uint64_t s, uint64_t f, uint64_t) -> uint64_t {
         return 1 << 16 | ((d + nib(s, 0) + nib(s, 1) + nib(f, 0) + nib(f, 1)) & 0xFF) << 40;
     }},
    // 35:8,203:8,6:4,D:8,S:8,F:8,T:4; T = 15 minus S's and F's nibbles
    {"Mitsubishi-K",
     0x23,
     0xCB,
     {20, 8},
     {28, 8},
     {36, 8},
     {},
     0,
     -1,
     [](uint64_t, uint64_t, uint64_t, uint64_t s, uint64_t f, uint64_t) -> uint64_t {
         return 6 << 16 | ((15 - nib(s, 0) - nib(s, 1) - nib(f, 0) - nib(f, 1)) & 0xF) << 44;
     }},
    // 20:8,99:8,0:4,E:4,D:8,S:8,F:8, no check
    {"Fujitsu",
     0x14,
     0x63,
     {24, 8},
     {32, 8},
     {40, 8},
     {20, 4},
     1,
     0,
     [](uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t) -> uint64_t { return 0; }},
    // M:8,N:8,X:4,D:4,S:8,F:8,E:4,C:4; X from the maker, C from the rest
    {"Kaseikyo",
     -1,
     -1,
     {20, 4},
     {24, 8},
     {32, 8},
     {40, 4},
     0,
     0,
     [](uint64_t m, uint64_t n, uint64_t d, uint64_t s, uint64_t f, uint64_t e) -> uint64_t {
         const uint64_t x = ((m ^ n) >> 4 ^ (m ^ n)) & 0xF;
         const uint64_t sum = d ^ s ^ f ^ e << 4;
         return x << 16 | ((sum >> 4 ^ sum) & 0xF) << 44;
     }},
};

uint64_t pack(const Variant& v, uint64_t m, uint64_t n, uint64_t d, uint64_t s, uint64_t f,
              uint64_t e) {
    return m | n << 8 | v.d.put(int64_t(d)) | v.s.put(int64_t(s)) | v.f.put(int64_t(f)) |
           v.e.put(int64_t(e)) | v.rest(m, n, d, s, f, e);
}

std::optional<IrpCode> irp(const IrCode& c) {
    if (c.protocol != IrProtocol::Aeha || c.frames.size() != 1 || c.frames[0].size() != 6)
        return std::nullopt;
    uint64_t frame = 0;
    for (int i = 0; i < 6; ++i)
        frame |= uint64_t(c.frames[0][size_t(i)]) << (8 * i);
    const uint64_t m = frame & 0xFF, n = frame >> 8 & 0xFF;
    for (const Variant& v : Variants) {
        if (v.m >= 0 && (uint64_t(v.m) != m || uint64_t(v.n) != n))
            continue;
        const uint64_t d = v.d.get(frame), s = v.s.get(frame), f = v.f.get(frame),
                       e = v.e.get(frame);
        if (pack(v, m, n, d, s, f, e) != frame)
            continue;
        IrpCode i{QString::fromLatin1(v.name), int64_t(d), int64_t(s), int64_t(f)};
        if (v.eDefault >= 0)
            i.E = int64_t(e);
        if (v.m < 0) {
            i.M = int64_t(m);
            i.N = int64_t(n);
        }
        return i;
    }
    return std::nullopt;
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    for (const Variant& v : Variants) {
        if (!irpNameIs(i.protocol, v.name)) // "Sharp DVD" too
            continue;
        const int64_t s = i.S < 0 && v.sIsD ? i.D : i.S;
        const int64_t e = i.E < 0 ? v.eDefault : i.E;
        const int64_t m = v.m < 0 ? i.M : v.m, n = v.m < 0 ? i.N : v.n;
        auto max = [](const Field& f) { return (int64_t(1) << f.width) - 1; };
        if (!irpRange(i, 'D', i.D, max(v.d), why) || !irpRange(i, 'S', s, max(v.s), why) ||
            !irpRange(i, 'F', i.F, max(v.f), why) ||
            (v.eDefault >= 0 && !irpRange(i, 'E', e, max(v.e), why)) ||
            !irpRange(i, 'M', m, 0xFF, why) || !irpRange(i, 'N', n, 0xFF, why))
            return std::nullopt;
        const uint64_t frame = pack(v, uint64_t(m), uint64_t(n), uint64_t(i.D), uint64_t(s),
                                    uint64_t(i.F), uint64_t(std::max<int64_t>(e, 0)));
        IrCode c;
        c.protocol = IrProtocol::Aeha;
        c.frames.emplace_back();
        for (int b = 0; b < 6; ++b)
            c.frames[0].push_back(uint8_t(frame >> (8 * b)));
        return c;
    }
    return std::nullopt;
}

bool noFrame(const Durations&, size_t, Frame*) {
    return false;
}

bool noWrite(const IrCode&, Writer&) {
    return false;
}

} // namespace

const Family KaseikyoFamily{noFrame, noWrite, frameAgain, irp, fromIrp};

} // namespace irproto
