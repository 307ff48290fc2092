#include "infrared/protocols/Framing.h"

using namespace Qt::StringLiterals;

namespace irproto {

bool Judge::tighten() {
    if (n == 0)
        return false;
    scale = sumRatio / n;
    tol = 0.3; // ±25 % and a little for the unit being measured
    sumRatio = 0;
    n = 0;
    return scale > 0.7 && scale < 1.4;
}

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

bool Halves::load() {
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

int Halves::half(int n) {
    if (!gap && left == 0) {
        ++at;
        if (!load())
            return -1;
    }
    if (gap)
        return 0;
    if (left < n)
        return -1;
    left -= n;
    return pulse;
}

bool Halves::space(int stretch) {
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

bool Halves::atPause() {
    if (gap)
        return true;
    if (left > 0)
        return false;
    ++at;
    return load() && gap;
}

bool irpNameIs(const QString& name, const char* wanted) {
    QString plain;
    for (QChar c : name)
        if (c != u' ' && c != u'.' && c != u'-' && c != u'_')
            plain += c.toLower();
    QString want;
    for (const char* p = wanted; *p; ++p)
        if (*p != ' ' && *p != '.' && *p != '-' && *p != '_')
            want += QChar::fromLatin1(*p).toLower();
    return plain == want;
}

bool irpRange(const IrpCode& irp, char param, int64_t value, int64_t max, QString* why) {
    if (value >= 0 && value <= max)
        return true;
    if (why)
        *why =
            value < 0
                ? u"%1 needs %2"_s.arg(irp.protocol).arg(QChar::fromLatin1(param))
                : u"%1 of %2 is 0 to %3"_s.arg(QChar::fromLatin1(param)).arg(irp.protocol).arg(max);
    return false;
}

std::optional<IrCode> codeOfDF(const IrpCode& irp, IrProtocol protocol, int64_t dMax, int64_t fMax,
                               QString* why) {
    if (!irpRange(irp, 'D', irp.D, dMax, why) || !irpRange(irp, 'F', irp.F, fMax, why))
        return std::nullopt;
    IrCode c;
    c.protocol = protocol;
    c.scancode = uint32_t(irp.D << 8 | irp.F);
    return c;
}

} // namespace irproto
