#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {
namespace {

constexpr double SonyUnit = 600;
constexpr uint32_t SonyPeriod = 45000;

// Sony: 4T leader pulse, then bits as 1T space + 1T (0) or 2T (1) pulse, LSB
// first: 7 command bits, 5 or 8 device bits, 8 subdevice bits in the 20-bit form.
//
// Receivers lengthen pulses and shorten spaces by as much, up to a quarter of
// the unit on some (712/488 µs for 600/600), so pulses are judged against the
// short pulses measured on the frame rather than against the spaces' unit.
bool readSony(const Durations& d, size_t at, Bits& bits, size_t* end) {
    std::array<uint32_t, 21> marks{};
    double spaces = 0;
    int n = 0;
    size_t i = at + 1;
    for (; i + 1 < d.size() && d[i] < 3 * SonyUnit; i += 2) {
        if (n == int(marks.size()))
            return false;
        spaces += d[i];
        marks[size_t(n++)] = d[i + 1];
    }
    if (n < 12)
        return false;
    const double space = spaces / n;
    // Short and long pulses apart at 4/3 of the spaces' unit, then halfway
    // (relatively) between the two kinds' means.
    auto mean = [&](double split, bool longs, int* count) {
        double sum = 0;
        *count = 0;
        for (int k = 0; k < n; ++k)
            if ((marks[size_t(k)] >= split) == longs) {
                sum += marks[size_t(k)];
                ++*count;
            }
        return *count ? sum / *count : 0.0;
    };
    double split = 4.0 / 3 * space, shortMark = 0, longMark = 0;
    int shorts = 0, longs = 0;
    for (int pass = 0; pass < 2; ++pass) {
        const double s = mean(split, false, &shorts), l = mean(split, true, &longs);
        if (!shorts || !longs)
            break;
        shortMark = s;
        longMark = l;
        split = 2 * s * l / (s + l);
    }
    if (shortMark == 0) {
        // Stretched pulses all over 4/3 of the spaces: apart where the sorted
        // pulses jump most, if the jump is a unit's.
        std::array<uint32_t, 21> sorted = marks;
        std::sort(sorted.begin(), sorted.begin() + n);
        double jump = 1;
        for (int k = 1; k < n; ++k)
            if (sorted[size_t(k)] > jump * sorted[size_t(k - 1)]) {
                jump = double(sorted[size_t(k)]) / sorted[size_t(k - 1)];
                split = (sorted[size_t(k)] + sorted[size_t(k - 1)]) / 2.0;
            }
        const double s = mean(split, false, &shorts), l = mean(split, true, &longs);
        const double unit = (s + space) / 2;
        if (shorts && longs && std::abs(l - s - unit) <= 0.3 * unit) {
            shortMark = s;
            longMark = l;
        }
    }
    if (shortMark == 0) {
        // All one kind. Short ones are about as long as the spaces and 3T
        // shorter than the leader, long ones twice the spaces and 2T shorter:
        // whichever fits better.
        const double m = mean(0, true, &longs);
        const bool allLong = m * (m + space) > std::sqrt(2.0) * space * (d[at] - m);
        shortMark = allLong ? m - (m + space) / 3 : m;
        split = allLong ? 0 : 1e9;
    }
    const double unit = (shortMark + space) / 2;
    if (longMark == 0)
        longMark = shortMark + unit;
    if (unit < 0.6 * SonyUnit || unit > 1.4 * SonyUnit)
        return false;
    auto near = [](double measured, double want, double tol) {
        return std::abs(measured - want) <= tol * std::max(want, SonyUnit);
    };
    if (!near(d[at], shortMark + 3 * unit, 0.4))
        return false;
    for (int k = 0; k < n; ++k) {
        const bool one = marks[size_t(k)] >= split;
        if (!near(d[at + 1 + 2 * size_t(k)], space, 0.35) ||
            !near(marks[size_t(k)], one ? longMark : shortMark, 0.4) || !bits.push(one))
            return false;
    }
    // Then the pause, or the end of the signal.
    if (i < d.size() && d[i] < 5 * unit * 0.75)
        return false;
    *end = std::min(i, d.size());
    return true;
}

bool decodeSony(const Durations& d, size_t at, Frame* out) {
    if (d[at] < 1200 || d[at] > 4500)
        return false;
    Bits bits;
    size_t end = 0;
    if (!readSony(d, at, bits, &end))
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

bool write(const IrCode& code, Writer& w) {
    const uint32_t sc = code.scancode;
    const size_t from = w.d.size();
    switch (code.protocol) {
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
    default:
        return false;
    }
    return true;
}

// Sony12 {D:5,F:7}, Sony15 {D:8,F:7}, Sony20 {D:5,S:8,F:7}: the kernel's
// device, subdevice and function.
std::optional<IrpCode> irp(const IrCode& c) {
    const int64_t sc = c.scancode;
    switch (c.protocol) {
    case IrProtocol::Sony12:
        return IrpCode{u"Sony12"_s, sc >> 16, -1, sc & 0x7F};
    case IrProtocol::Sony15:
        return IrpCode{u"Sony15"_s, sc >> 16, -1, sc & 0x7F};
    case IrProtocol::Sony20:
        return IrpCode{u"Sony20"_s, sc >> 16, (sc >> 8) & 0xFF, sc & 0x7F};
    default:
        return std::nullopt;
    }
}

std::optional<IrCode> fromIrp(const IrpCode& i, QString* why) {
    IrCode c;
    int64_t deviceMax = 0x1F;
    if (irpNameIs(i.protocol, "Sony12")) {
        c.protocol = IrProtocol::Sony12;
    } else if (irpNameIs(i.protocol, "Sony15")) {
        c.protocol = IrProtocol::Sony15;
        deviceMax = 0xFF;
    } else if (irpNameIs(i.protocol, "Sony20")) {
        c.protocol = IrProtocol::Sony20;
    } else {
        return std::nullopt;
    }
    const int64_t s = c.protocol == IrProtocol::Sony20 ? i.S : 0;
    if (!irpRange(i, 'D', i.D, deviceMax, why) || !irpRange(i, 'S', s, 0xFF, why) ||
        !irpRange(i, 'F', i.F, 0x7F, why))
        return std::nullopt;
    c.scancode = uint32_t(i.D << 16 | s << 8 | i.F);
    return c;
}

} // namespace

const Family SonyFamily{decodeSony, write, frameAgain, irp, fromIrp};

} // namespace irproto
