#include "infrared/IrProtocol.h"

#include "infrared/SignalStore.h"

#include <QDateTime>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <array>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

struct ProtocolInfo {
    IrProtocol protocol;
    const char* name;
    const char* display;
    int carrierHz;
    uint32_t mask;
};

constexpr std::array<ProtocolInfo, 19> Protocols{{
    {IrProtocol::Raw, "raw", "raw", 0, 0},
    {IrProtocol::Nec, "nec", "NEC", 38000, 0xFFFF},
    {IrProtocol::Necx, "necx", "NECx", 38000, 0xFFFFFF},
    {IrProtocol::Nec32, "nec32", "NEC32", 38000, 0xFFFFFFFF},
    {IrProtocol::Samsung32, "samsung32", "Samsung32", 38000, 0xFFFF},
    {IrProtocol::Sony12, "sony12", "Sony12", 40000, 0x1F007F},
    {IrProtocol::Sony15, "sony15", "Sony15", 40000, 0xFF007F},
    {IrProtocol::Sony20, "sony20", "Sony20", 40000, 0x1FFF7F},
    {IrProtocol::Rc5, "rc5", "RC5", 36000, 0x1F7F},
    {IrProtocol::Rc5x20, "rc5x_20", "RC5x", 36000, 0x1F7F3F},
    {IrProtocol::Rc6_0, "rc6_0", "RC6", 36000, 0xFFFF},
    {IrProtocol::Rc6_6a20, "rc6_6a_20", "RC6-6A-20", 36000, 0xFFFFF},
    {IrProtocol::Rc6_6a24, "rc6_6a_24", "RC6-6A-24", 36000, 0xFFFFFF},
    {IrProtocol::Rc6_6a32, "rc6_6a_32", "RC6-6A-32", 36000, 0xFFFFFFFF},
    {IrProtocol::Rc6Mce, "rc6_mce", "RC6 MCE", 36000, 0xFFFF7FFF},
    {IrProtocol::Jvc, "jvc", "JVC", 38000, 0xFFFF},
    {IrProtocol::Sharp, "sharp", "Sharp", 38000, 0x1FFF},
    {IrProtocol::Sanyo, "sanyo", "Sanyo", 38000, 0x1FFFFF},
    {IrProtocol::Aeha, "aeha", "AEHA", 37000, 0},
}};

const ProtocolInfo& info(IrProtocol p) {
    return Protocols[size_t(p)];
}

// ---- timings (µs) ----------------------------------------------------------
// rc-core's values where the kernel has the protocol.

constexpr double NecUnit = 563;
constexpr double JvcUnit = 525;
constexpr double SonyUnit = 600;
constexpr double Rc5Unit = 889;
constexpr double Rc6Unit = 444;
constexpr double AehaUnit = 425;
constexpr double SharpPulse = 320, SharpZero = 680, SharpOne = 1680, SharpEcho = 40000;

// Pause to the next frame when a key is held: the frame period of real remotes.
constexpr uint32_t NecPeriod = 108000, SonyPeriod = 45000, Rc5Period = 113778, Rc6Period = 106667,
                   JvcPeriod = 60000, AehaPeriod = 130000;
constexpr uint32_t AehaFrameGap = 10000; // between the frames of one message

// ---- reading ---------------------------------------------------------------

// Judges durations against nominal ones times a scale measured on the signal.
// The first pass reads loosely with a scale from the leader and adds up what
// it read; the second reads again with the whole frame's scale, strictly.
struct Judge {
    double scale = 1;
    double tol = 0.4;    // fraction of the nominal duration
    double slack = 0;    // µs (nominal) allowed at least: short pulses stretch most
    double sumRatio = 0; // of measured to nominal durations, over n
    int n = 0;

    bool near(uint32_t measured, double nominal) const {
        const double want = nominal * scale;
        return std::abs(double(measured) - want) <= std::max(tol * want, slack * scale);
    }
    void count(uint32_t measured, double nominal) {
        sumRatio += measured / nominal;
        ++n;
    }
    // The strict pass after a loose one; false when the scale is off too far.
    bool tighten() {
        if (n == 0)
            return false;
        scale = sumRatio / n;
        tol = 0.3; // ±25 % and a little for the unit being measured

        sumRatio = 0;
        n = 0;
        return scale > 0.7 && scale < 1.4;
    }
};

using Durations = std::vector<uint32_t>;

constexpr int MaxFrameBytes = 64;

// Bits as received, LSB of each byte first.
struct Bits {
    std::array<uint8_t, MaxFrameBytes> bytes{};
    int count = 0;
    bool push(int bit) {
        if (count >= MaxFrameBytes * 8)
            return false;
        if (bit)
            bytes[count / 8] |= uint8_t(1u << (count % 8));
        ++count;
        return true;
    }
    uint32_t take(int from, int n) const { // LSB first
        uint32_t v = 0;
        for (int i = 0; i < n; ++i)
            if (bytes[(from + i) / 8] & (1u << ((from + i) % 8)))
                v |= 1u << i;
        return v;
    }
};

// The scale of a frame's one-unit durations (those under 1.5 units) against
// the unit, up to the frame's pause. The loose pass reads with it, so that a
// leader or a bit off by a quarter does not throw the rest off.
double unitScale(const Durations& d, size_t from, double unit, bool pulses, bool spaces,
                 double gap) {
    double sum = 0;
    int n = 0;
    const size_t last = std::min(d.size(), from + 4 * MaxFrameBytes * 8);
    for (size_t i = from; i < last; ++i) {
        const bool pulse = i % 2 == 0;
        if (!pulse && d[i] > gap)
            break;
        if ((pulse ? pulses : spaces) && d[i] < 1.5 * unit) {
            sum += d[i];
            ++n;
        }
    }
    return n ? sum / n / unit : 1.0;
}

// Pulse-distance frames: leader, bits as pulse + short/long space, trailer
// pulse, pause. Reads bits until a pause (or the end); returns the index
// of the pause (or size), 0 on a mismatch.
struct PdTiming {
    double leaderPulse, leaderSpace; // 0, 0: none
    double pulse, zero, one;
    double minGap;
    double split = 0; // space between zero and one; 0: as far from both, relatively
};

size_t readPd(const Durations& d, size_t at, const PdTiming& t, Judge& j, Bits& bits) {
    const size_t n = d.size();
    if (t.leaderPulse > 0) {
        if (at + 1 >= n || !j.near(d[at], t.leaderPulse) || !j.near(d[at + 1], t.leaderSpace))
            return 0;
        j.count(d[at], t.leaderPulse);
        j.count(d[at + 1], t.leaderSpace);
        at += 2;
    }
    const double longest = (t.one * (1 + j.tol) + j.slack) * j.scale;
    // Where a space is as far from one as from the other, relatively.
    const double threshold =
        (t.split > 0 ? t.split : 2 * t.zero * t.one / (t.zero + t.one)) * j.scale;
    for (;;) {
        if (at >= n || !j.near(d[at], t.pulse))
            return 0;
        j.count(d[at], t.pulse);
        ++at;
        if (at >= n)
            return at;
        const uint32_t space = d[at];
        if (space > longest)
            return space >= t.minGap * j.scale * 0.75 ? at : 0;
        const double want = space > threshold ? t.one : t.zero;
        if (!j.near(space, want) || !bits.push(want == t.one))
            return 0;
        j.count(space, want);
        ++at;
    }
}

// Two passes of a reader: loose, then strict with the measured scale.
template <typename Read> size_t twoPass(Judge j, Read read) {
    if (!read(j) || !j.tighten())
        return 0;
    return read(j);
}

// ---- protocols ---------------------------------------------------------------

struct Frame {
    IrCode code;
    size_t end = 0; // index of the pause after the frame, or size
    bool repeatOnly = false;
};

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

// Sony: 4T leader pulse, then bits as 1T space + 1T (0) or 2T (1) pulse, LSB
// first: 7 command bits, 5 or 8 device bits, 8 subdevice bits in the 20-bit form.
size_t readSony(const Durations& d, size_t at, Judge& j, Bits& bits) {
    const size_t n = d.size();
    if (!j.near(d[at], 4 * SonyUnit))
        return 0;
    j.count(d[at], 4 * SonyUnit);
    ++at;
    const double longest = (SonyUnit * (1 + j.tol) + j.slack) * j.scale;
    for (;;) {
        if (at >= n)
            return at;
        const uint32_t space = d[at];
        if (space > longest)
            return space >= 5 * SonyUnit * j.scale * 0.75 ? at : 0;
        if (!j.near(space, SonyUnit))
            return 0;
        j.count(space, SonyUnit);
        if (++at >= n)
            return 0;
        const double want = d[at] > 4.0 / 3 * SonyUnit * j.scale ? 2 * SonyUnit : SonyUnit;
        if (!j.near(d[at], want) || !bits.push(want > SonyUnit))
            return 0;
        j.count(d[at], want);
        ++at;
    }
}

bool decodeSony(const Durations& d, size_t at, Frame* out) {
    if (d[at] < 1200 || d[at] > 4500)
        return false;
    Bits bits;
    Judge j;
    j.slack = 0.3 * SonyUnit;
    j.scale = unitScale(d, at + 1, SonyUnit, false, true, 3 * SonyUnit);
    const size_t end = twoPass(j, [&](Judge& jj) {
        bits = Bits{};
        return readSony(d, at, jj, bits);
    });
    if (!end)
        return false;
    const uint32_t cmd = bits.take(0, 7);
    IrCode& c = out->code;
    switch (bits.count) {
    case 12:
        c.protocol = IrProtocol::Sony12;
        c.scancode = bits.take(7, 5) << 16 | cmd;
        break;
    case 15:
        c.protocol = IrProtocol::Sony15;
        c.scancode = bits.take(7, 8) << 16 | cmd;
        break;
    case 20:
        c.protocol = IrProtocol::Sony20;
        c.scancode = bits.take(7, 5) << 16 | bits.take(12, 8) << 8 | cmd;
        break;
    default:
        return false;
    }
    out->end = end;
    return true;
}

// Bi-phase (RC5, RC6): half-bits of one unit (two in RC6's trailer bit), so a
// duration spans one to a few of them. A space longer than any in a frame is
// the pause after it, as is the end of the signal.
struct Halves {
    const Durations& d;
    Judge& j;
    double unit;
    int maxPulse, maxSpace; // in units
    size_t at;
    int left = 0;  // units of the current duration not read yet
    int units = 0; // it was read as
    double measured = 0;
    bool pulse = false;
    bool gap = false;

    bool load() {
        if (at >= d.size()) {
            gap = true;
            pulse = false;
            return true;
        }
        pulse = at % 2 == 0;
        const uint32_t m = d[at];
        const long k = std::lround(m / (unit * j.scale));
        if (!pulse && k > maxSpace) {
            gap = true;
            return true;
        }
        if (k < 1 || k > (pulse ? maxPulse : maxSpace) || !j.near(m, double(k) * unit))
            return false;
        j.count(m, double(k) * unit);
        left = units = int(k);
        measured = m;
        return true;
    }
    bool start() { return load(); }
    // The level of the next `units` units (1 pulse, 0 space), -1 on a mismatch.
    int half(int units) {
        if (!gap && left == 0) {
            ++at;
            if (!load())
                return -1;
        }
        if (gap)
            return 0;
        if (left < units)
            return -1;
        left -= units;
        return pulse;
    }
    int bit(int units) { // the first half's level; both halves must differ
        const int a = half(units), b = half(units);
        return a < 0 || b < 0 || a == b ? -1 : a;
    }
    // A stretch of space inside a frame (RC5x's). Judged by what is left of
    // the duration rather than by rounding, since it merges with half-bits.
    bool space(int stretch) {
        if (!gap && left == 0) {
            ++at;
            if (!load())
                return false;
        }
        if (gap || pulse)
            return false;
        const double rest = measured / (unit * j.scale) - (units - left);
        if (rest < stretch / 2.0)
            return false;
        left = std::max(0, int(std::lround(rest - stretch)));
        return true;
    }
    bool atPause() {
        if (gap)
            return true;
        if (left > 0)
            return false;
        ++at;
        return load() && gap;
    }
};

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

// Sharp: no leader; 5 address bits, 8 command bits and two check bits, LSB
// first, then after 40 ms the same with command and check bits inverted.
bool decodeSharp(const Durations& d, size_t at, Frame* out) {
    if (d[at] < 150 || d[at] > 600)
        return false;
    // The kernel encodes spaces of 680 and 1680 µs, ir-ctl's own encoder the
    // whole bit periods (1000, 2000): the kernel's decoder allows 640 µs on a
    // bit, and so do we, telling the two apart halfway.
    PdTiming t{0, 0, SharpPulse, SharpZero, SharpOne, 5000};
    t.split = (SharpZero + SharpOne) / 2;
    Bits first, second;
    Judge j;
    j.slack = 330;
    j.scale = unitScale(d, at, SharpPulse, true, false, 3000);
    const size_t end = twoPass(j, [&](Judge& jj) -> size_t {
        first = Bits{};
        second = Bits{};
        const size_t echo = readPd(d, at, t, jj, first);
        if (!echo || first.count != 15 || echo + 1 >= d.size() || !jj.near(d[echo], SharpEcho))
            return 0;
        const size_t end = readPd(d, echo + 1, t, jj, second);
        return second.count == 15 ? end : 0;
    });
    if (!end)
        return false;
    const uint32_t msg = first.take(0, 15), echo = second.take(0, 15);
    const uint32_t check = msg >> 13;
    if ((msg ^ echo) != 0x7FE0 || (check != 1 && check != 0))
        return false;
    out->code.protocol = IrProtocol::Sharp;
    out->code.scancode = (msg & 0x1F) << 8 | ((msg >> 5) & 0xFF);
    out->end = end;
    return true;
}

using Decoder = bool (*)(const Durations&, size_t, Frame*);
constexpr std::array<Decoder, 5> Decoders{decodeLeader, decodeSony, decodeRc6, decodeRc5,
                                          decodeSharp};

bool decodeFrame(const Durations& d, size_t at, Frame* out) {
    for (Decoder decode : Decoders) {
        *out = Frame{};
        if (decode(d, at, out))
            return true;
    }
    return false;
}

// ---- writing -----------------------------------------------------------------

struct Writer {
    Durations d;
    void add(double pulse, double space) {
        if (pulse > 0)
            d.push_back(uint32_t(std::lround(pulse)));
        if (space > 0)
            d.push_back(uint32_t(std::lround(space)));
    }
    void pd(const PdTiming& t, const uint8_t* bytes, int nbits) {
        add(t.leaderPulse, t.leaderSpace);
        for (int i = 0; i < nbits; ++i)
            add(t.pulse, (bytes[i / 8] >> (i % 8)) & 1 ? t.one : t.zero);
        d.push_back(uint32_t(std::lround(t.pulse)));
    }
    // Bi-phase halves: a level that goes on lengthens the last duration.
    void level(bool pulse, double us) {
        const bool lastPulse = d.size() % 2 == 1;
        if (!d.empty() && lastPulse == pulse)
            d.back() += uint32_t(std::lround(us));
        else if (pulse || !d.empty())
            d.push_back(uint32_t(std::lround(us)));
    }
    // The pause that makes the frame since `from` last `period`, at least min.
    void pauseTo(size_t from, uint32_t period, uint32_t min) {
        uint64_t len = 0;
        for (size_t i = from; i < d.size(); ++i)
            len += d[i];
        level(false, len + min < period ? uint32_t(period - len) : min);
    }
};

void writeFrame(const IrCode& code, Writer& w) {
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
    case IrProtocol::Sony12:
    case IrProtocol::Sony15:
    case IrProtocol::Sony20: {
        const int deviceBits = code.protocol == IrProtocol::Sony15 ? 8 : 5;
        uint32_t v = (sc & 0x7F) | ((sc >> 16) & ((1u << deviceBits) - 1)) << 7;
        int nbits = 7 + deviceBits;
        if (code.protocol == IrProtocol::Sony20) {
            v |= ((sc >> 8) & 0xFF) << 12;
            nbits = 20;
        }
        w.d.push_back(uint32_t(4 * SonyUnit));
        for (int i = 0; i < nbits; ++i)
            w.add(SonyUnit, (v >> i) & 1 ? 2 * SonyUnit : SonyUnit);
        w.pauseTo(from, SonyPeriod, uint32_t(11 * SonyUnit));
        break;
    }
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
    case IrProtocol::Sharp: {
        auto half = [&](uint32_t command, uint32_t check) {
            const uint32_t v = ((sc >> 8) & 0x1F) | (command & 0xFF) << 5 | check << 13;
            const std::array<uint8_t, 2> b{uint8_t(v), uint8_t(v >> 8)};
            w.pd({0, 0, SharpPulse, SharpZero, SharpOne, 0}, b.data(), 15);
        };
        half(sc, 1);
        w.d.push_back(uint32_t(SharpEcho));
        half(~sc, 2);
        w.d.push_back(uint32_t(SharpEcho));
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
        break;
    }
}

void writeRepeat(const IrCode& code, Writer& w) {
    const size_t from = w.d.size();
    switch (code.protocol) {
    case IrProtocol::Nec:
    case IrProtocol::Necx:
    case IrProtocol::Nec32:
        w.add(16 * NecUnit, 4 * NecUnit);
        w.d.push_back(uint32_t(NecUnit));
        w.pauseTo(from, NecPeriod, uint32_t(10 * NecUnit));
        break;
    case IrProtocol::Jvc: {
        const std::array<uint8_t, 2> b{uint8_t(code.scancode >> 8), uint8_t(code.scancode)};
        w.pd({0, 0, JvcUnit, JvcUnit, 3 * JvcUnit, 0}, b.data(), 16);
        w.pauseTo(from, JvcPeriod, uint32_t(35 * JvcUnit));
        break;
    }
    default:
        writeFrame(code, w);
        break;
    }
}

bool parseHex(QStringView s, std::vector<uint8_t>* out) {
    if (s.startsWith(u"0x"_s, Qt::CaseInsensitive))
        s = s.mid(2);
    if (s.isEmpty() || s.size() % 2 != 0)
        return false;
    out->clear();
    for (qsizetype i = 0; i < s.size(); i += 2) {
        bool ok = false;
        const uint v = s.mid(i, 2).toUInt(&ok, 16);
        if (!ok)
            return false;
        out->push_back(uint8_t(v));
    }
    return true;
}

QString hexBytes(const std::vector<uint8_t>& b, bool upper) {
    QString s;
    for (uint8_t v : b)
        s += u"%1"_s.arg(v, 2, 16, QChar(u'0'));
    return upper ? s.toUpper() : s;
}

} // namespace

QString ProtocolName(IrProtocol protocol) {
    return QString::fromLatin1(info(protocol).name);
}

std::optional<IrProtocol> ProtocolFromName(QStringView name) {
    for (const ProtocolInfo& p : Protocols)
        if (name.compare(QLatin1StringView(p.name), Qt::CaseInsensitive) == 0)
            return p.protocol;
    return std::nullopt;
}

int ProtocolCarrierHz(IrProtocol protocol) {
    return info(protocol).carrierHz;
}

uint32_t ProtocolScancodeMask(IrProtocol protocol) {
    return info(protocol).mask;
}

IrCodeFields FieldsOf(const IrCode& c) {
    IrCodeFields f;
    const uint32_t sc = c.scancode;
    switch (c.protocol) {
    case IrProtocol::Raw:
        break;
    case IrProtocol::Nec32:
        f.address = sc >> 16;
        f.command = sc & 0xFFFF;
        break;
    case IrProtocol::Sony12:
    case IrProtocol::Sony15:
    case IrProtocol::Sony20:
        f.address = sc >> 16;
        f.command = sc & 0x7F;
        if (c.protocol == IrProtocol::Sony20)
            f.subdevice = (sc >> 8) & 0xFF;
        break;
    case IrProtocol::Rc5:
        f.address = (sc >> 8) & 0x1F;
        f.command = sc & 0x7F;
        break;
    case IrProtocol::Rc5x20:
        f.address = (sc >> 16) & 0x1F;
        f.command = (sc >> 8) & 0x7F;
        f.extra = sc & 0x3F;
        break;
    case IrProtocol::Aeha:
        if (!c.frames.empty() && c.frames[0].size() >= 2)
            f.maker = uint16_t(c.frames[0][0] | c.frames[0][1] << 8);
        break;
    default:
        f.address = sc >> 8;
        f.command = sc & 0xFF;
        break;
    }
    return f;
}

IrCode DecodeSignal(const IrTiming& timing) {
    const Durations& d = timing.durations;
    Frame first;
    if (d.empty() || !decodeFrame(d, 0, &first) || first.repeatOnly)
        return {};
    IrCode code = first.code;
    size_t at = first.end; // a pause, or the end
    size_t cycle = 0;      // aeha: the frame of the message a repeat is at
    while (at + 1 < d.size()) {
        const size_t start = at + 1;
        Frame next;
        size_t end = 0;
        if (code.protocol == IrProtocol::Jvc && decodeJvcRepeat(d, start, code.scancode, &end)) {
            code.repeats = true;
            at = end;
            continue;
        }
        if (!decodeFrame(d, start, &next))
            return {};
        if (next.repeatOnly) {
            const bool nec = code.protocol == IrProtocol::Nec ||
                             code.protocol == IrProtocol::Necx ||
                             code.protocol == IrProtocol::Nec32;
            if (!nec && code.protocol != IrProtocol::Aeha)
                return {};
            code.repeats = true;
        } else if (code.protocol == next.code.protocol && code.protocol != IrProtocol::Aeha &&
                   code.scancode == next.code.scancode) {
            code.repeats = true;
        } else if (code.protocol == IrProtocol::Aeha && next.code.protocol == IrProtocol::Aeha) {
            // An air conditioner's message of several frames, perhaps sent
            // again whole.
            const auto& frame = next.code.frames[0];
            if (code.repeats) {
                if (frame != code.frames[cycle++ % code.frames.size()])
                    return {};
            } else if (frame == code.frames[0]) {
                code.repeats = true;
                cycle = 1;
            } else {
                code.frames.push_back(frame);
            }
        } else {
            return {};
        }
        at = next.end;
    }
    return code;
}

std::optional<IrTiming> EncodeSignal(const IrCode& code) {
    if (code.protocol == IrProtocol::Raw)
        return std::nullopt;
    if (code.protocol == IrProtocol::Aeha) {
        if (code.frames.empty())
            return std::nullopt;
        for (const auto& f : code.frames)
            if (f.empty() || f.size() > MaxFrameBytes)
                return std::nullopt;
    } else if ((code.scancode & ~ProtocolScancodeMask(code.protocol)) != 0) {
        return std::nullopt;
    }
    Writer w;
    writeFrame(code, w);
    if (w.d.empty())
        return std::nullopt;
    IrTiming t;
    t.carrierHz = ProtocolCarrierHz(code.protocol);
    if (code.repeats) {
        t.repeatBegin = int(w.d.size());
        writeRepeat(code, w);
    }
    t.durations = std::move(w.d);
    return t;
}

QString CodeSpec(const IrCode& code) {
    const QString name = ProtocolName(code.protocol);
    if (code.protocol == IrProtocol::Raw)
        return name;
    if (code.protocol == IrProtocol::Aeha) {
        QStringList frames;
        for (const auto& f : code.frames)
            frames << u"0x"_s + hexBytes(f, false);
        return name + u':' + frames.join(u',');
    }
    const int digits = ProtocolScancodeMask(code.protocol) > 0xFFFF ? 6 : 4;
    const int width = ProtocolScancodeMask(code.protocol) > 0xFFFFFF ? 8 : digits;
    return name + u":0x"_s + u"%1"_s.arg(code.scancode, width, 16, QChar(u'0'));
}

std::optional<IrCode> ParseCodeSpec(QStringView text, QString* why) {
    auto fail = [&](const QString& reason) -> std::optional<IrCode> {
        if (why)
            *why = reason;
        return std::nullopt;
    };
    const qsizetype colon = text.indexOf(u':');
    if (colon < 0)
        return fail(u"not PROTOCOL:SCANCODE"_s);
    const auto protocol = ProtocolFromName(text.left(colon).trimmed());
    if (!protocol || *protocol == IrProtocol::Raw)
        return fail(u"unknown protocol '%1'"_s.arg(text.left(colon).trimmed()));
    const QStringView value = text.mid(colon + 1).trimmed();
    IrCode code;
    code.protocol = *protocol;
    if (code.protocol == IrProtocol::Aeha) {
        for (QStringView part : value.split(u',')) {
            std::vector<uint8_t> bytes;
            if (!parseHex(part.trimmed(), &bytes) || bytes.size() < 3 ||
                bytes.size() > MaxFrameBytes)
                return fail(
                    u"aeha takes the frame's bytes in hex (3 to %1 bytes)"_s.arg(MaxFrameBytes));
            code.frames.push_back(std::move(bytes));
        }
        return code;
    }
    bool ok = false;
    const qulonglong v = value.startsWith(u"0x"_s, Qt::CaseInsensitive)
                             ? value.mid(2).toULongLong(&ok, 16)
                             : value.toULongLong(&ok, 10);
    if (!ok || v > ProtocolScancodeMask(code.protocol) ||
        (v & ~qulonglong(ProtocolScancodeMask(code.protocol))) != 0)
        return fail(u"scancode '%1' does not fit %2"_s.arg(value, ProtocolName(code.protocol)));
    code.scancode = uint32_t(v);
    return code;
}

QString CodeDisplay(const IrCode& code) {
    const QString name = QString::fromLatin1(info(code.protocol).display);
    if (code.protocol == IrProtocol::Raw)
        return name;
    if (code.protocol == IrProtocol::Aeha) {
        QStringList frames;
        for (const auto& f : code.frames) {
            std::vector<uint8_t> rest(f.begin() + std::min<size_t>(2, f.size()), f.end());
            frames << hexBytes(rest, true);
        }
        const auto maker = FieldsOf(code).maker.value_or(0);
        return name + u' ' + u"%1"_s.arg(maker, 4, 16, QChar(u'0')).toUpper() + u' ' +
               frames.join(u' ');
    }
    return CodeSpec(code).mid(ProtocolName(code.protocol).size() + 1).prepend(name + u' ');
}

IrCode SignalCodeCache::codeOf(const QString& path) {
    const QFileInfo fi(path);
    const int64_t mtime = fi.exists() ? fi.lastModified().toMSecsSinceEpoch() : 0;
    const int64_t size = fi.exists() ? fi.size() : -1;
    Entry& e = entries_[path];
    if (e.size == size && e.mtimeMs == mtime) // a new entry matches only a missing file: raw
        return e.code;
    e = {mtime, size, {}};
    QByteArray blob;
    QString why;
    if (ReadCheckedSignal(path, &blob, &why) == SignalRead::Ok)
        if (auto b = IrBlob::decode(blob))
            e.code = DecodeSignal(TimingFromBlob(*b));
    return e.code;
}
