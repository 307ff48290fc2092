#pragma once

// What every protocol's reader and writer share: judging measured durations
// against nominal ones, collecting bits, and writing exact timings. Internal
// to infrared/; the public face is infrared/IrProtocol.h.

#include "infrared/IrProtocol.h"

#include <QString>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

namespace irproto {

using Durations = std::vector<uint32_t>;

constexpr int MaxFrameBytes = 64;

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
    bool tighten();
};

// Bits as received, LSB of each byte first.
struct Bits {
    std::array<uint8_t, MaxFrameBytes> bytes{};
    int count = 0;
    int limit = MaxFrameBytes * 8; // a reader that knows its count stops past it
    bool push(int bit) {
        if (count >= limit)
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
    uint32_t takeMsb(int from, int n) const { // MSB first
        uint32_t v = 0;
        for (int i = 0; i < n; ++i)
            v = v << 1 | ((bytes[(from + i) / 8] >> ((from + i) % 8)) & 1u);
        return v;
    }
};

// The scale of a frame's one-unit durations (those under 1.5 units) against
// the unit, up to the frame's pause. The loose pass reads with it, so that a
// leader or a bit off by a quarter does not throw the rest off.
double unitScale(const Durations& d, size_t from, double unit, bool pulses, bool spaces,
                 double gap);

// Pulse-distance frames: leader, bits as pulse + short/long space, trailer
// pulse, pause.
struct PdTiming {
    double leaderPulse, leaderSpace; // 0, 0: none
    double pulse, zero, one;
    double minGap;
    double split = 0; // space between zero and one; 0: as far from both, relatively
};

// Reads bits until a pause (or the end); returns the index of the pause (or
// size), 0 on a mismatch.
size_t readPd(const Durations& d, size_t at, const PdTiming& t, Judge& j, Bits& bits);

// Two passes of a reader: loose, then strict with the measured scale.
template <typename Read> size_t twoPass(Judge j, Read read) {
    if (!read(j) || !j.tighten())
        return 0;
    return read(j);
}

// A frame recognised at some index of a signal.
struct Frame {
    IrCode code;
    size_t end = 0; // index of the pause after the frame, or size
    bool repeatOnly = false;
};

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

    bool load();
    bool start() { return load(); }
    // The level of the next `units` units (1 pulse, 0 space), -1 on a mismatch.
    int half(int units);
    int bit(int units) { // the first half's level; both halves must differ
        const int a = half(units), b = half(units);
        return a < 0 || b < 0 || a == b ? -1 : a;
    }
    // A stretch of space inside a frame (RC5x's). Judged by what is left of
    // the duration rather than by rounding, since it merges with half-bits.
    bool space(int stretch);
    bool atPause();
};

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

// One family of protocols: its reader, writer and IRP names. A family answers
// only for its own protocols and leaves the rest to the others.
struct Family {
    // Recognises one frame at `at`.
    bool (*decode)(const Durations& d, size_t at, Frame* out);
    // One frame of the code, ending with its pause; false: not this family's.
    bool (*write)(const IrCode& code, Writer& w);
    // What a held key sends after the first frame; false: the frame again.
    bool (*writeRepeat)(const IrCode& code, Writer& w);
    // The code in the IR databases' convention; nothing: not this family's.
    std::optional<IrpCode> (*irp)(const IrCode& code);
    // The reverse. Nothing and why empty: not this family's name; with why:
    // its name but values it cannot hold.
    std::optional<IrCode> (*fromIrp)(const IrpCode& irp, QString* why);
};

// writeRepeat of families that send the frame again.
inline bool frameAgain(const IrCode&, Writer&) {
    return false;
}

// The IRP protocol names compare without case, spaces, dots, '-' and '_'
// ("G.I. Cable", "gi_cable").
bool irpNameIs(const QString& name, const char* wanted);
// Checks a parameter's range; sets why and returns false when it is out.
bool irpRange(const IrpCode& irp, char param, int64_t value, int64_t max, QString* why);

// JVC repeats its 16 bits without the leader.
bool decodeJvcRepeat(const Durations& d, size_t at, uint32_t scancode, size_t* end);

// The code of a protocol whose scancode is D<<8|F, from an IRP code of its
// name; nothing, with why, when D or F is out of range.
std::optional<IrCode> codeOfDF(const IrpCode& irp, IrProtocol protocol, int64_t dMax, int64_t fMax,
                               QString* why);

// The families, in the order they are tried on a frame.
extern const Family NecFamily; // 9 ms / 4.5 ms leaders: NEC, Samsung, JVC, Sanyo, AEHA
extern const Family SonyFamily;
extern const Family Rc6Family;
extern const Family Rc5Family;
extern const Family SharpFamily;    // and Denon
extern const Family KaseikyoFamily; // names aeha frames; reads none itself
extern const Family PioneerFamily;  // the NEC reader reads it; the carrier decides
extern const Family ProtonFamily;
extern const Family RcaFamily;
extern const Family Samsung36Family;
extern const Family GiCableFamily;
extern const Family MitsubishiFamily;
extern const Family Recs80Family;
extern const Family DishFamily;
extern const Family DirecTvFamily;
extern const Family RcMmFamily;

// A NEC frame on Pioneer's 40 kHz is Pioneer's; RCA's below 48 kHz RCA-38.
void pioneerByCarrier(IrCode& code, int carrierHz);
void rcaByCarrier(IrCode& code, int carrierHz);
// Folds the next frame of a Pioneer key in: its second frame, or a repeat;
// false when it is neither.
bool pioneerNext(IrCode& code, const IrCode& next);

} // namespace irproto
