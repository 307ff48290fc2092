#include "infrared/IrSignal.h"

#include "infrared/TiraFacts.h"

#include <QStringList>

#include <algorithm>
#include <cmath>
#include <map>

using namespace Qt::StringLiterals;

namespace {

void putLe32(QByteArray& out, int32_t v) {
    auto u = static_cast<uint32_t>(v);
    for (int i = 0; i < 4; ++i)
        out.append(static_cast<char>((u >> (8 * i)) & 0xFF));
}

int32_t getLe32(const QByteArray& in, int at) {
    uint32_t u = 0;
    for (int i = 0; i < 4; ++i)
        u |= uint32_t(uint8_t(in[at + i])) << (8 * i);
    return static_cast<int32_t>(u);
}

} // namespace

QByteArray IrBlob::encode() const {
    QByteArray out;
    out.reserve(HeaderSize + int(sequence.size()));
    putLe32(out, 0);
    putLe32(out, timeBase);
    for (int i = 0; i < MaxTable; ++i)
        putLe32(out, i < int(table.size()) ? table[i] : 0);
    putLe32(out, int32_t(table.size()));
    putLe32(out, pulsePeriodNs);
    putLe32(out, repeatSelect);
    putLe32(out, int32_t(sequence.size()));
    putLe32(out, repeatBegin);
    for (uint8_t b : sequence)
        out.append(static_cast<char>(b));
    return out;
}

std::optional<IrBlob> IrBlob::decode(QByteArrayView bytes) {
    // Whole or nothing: a blob cut short is refused, never padded, since the
    // zeros would go out as the first duration of the table.
    QByteArray in = bytes.toByteArray();
    if (in.size() < HeaderSize)
        return std::nullopt;
    IrBlob b;
    b.timeBase = getLe32(in, 4);
    int32_t used = getLe32(in, 72);
    b.pulsePeriodNs = getLe32(in, 76);
    b.repeatSelect = getLe32(in, 80);
    int32_t length = getLe32(in, 84);
    b.repeatBegin = getLe32(in, 88);
    if (getLe32(in, 0) != 0 || b.timeBase < 1 || b.timeBase > 1000 || used < 1 || used > MaxTable ||
        length < 1 || length > in.size() - HeaderSize || b.pulsePeriodNs < 0 ||
        b.repeatBegin < -1 || b.repeatBegin >= length)
        return std::nullopt;
    for (int i = 0; i < used; ++i) {
        int32_t v = getLe32(in, 8 + 4 * i);
        if (v < 1 || v > 0xFFFFFF / b.timeBase)
            return std::nullopt;
        b.table.push_back(v);
    }
    b.sequence.reserve(length);
    for (int i = 0; i < length; ++i) {
        auto idx = uint8_t(in[HeaderSize + i]);
        if (idx >= used)
            return std::nullopt;
        b.sequence.push_back(idx);
    }
    return b;
}

QString SignalProblem(const IrBlob& blob) {
    if (blob.pulsePeriodNs > 0) {
        const double hz = 1e9 / blob.pulsePeriodNs;
        if (hz < MinCarrierHz || hz > MaxCarrierHz)
            return u"carrier of %1 Hz"_s.arg(std::lround(hz));
    }
    uint64_t total = 0;
    for (uint8_t i : blob.sequence)
        total += uint64_t(blob.table[i]) * uint64_t(blob.timeBase);
    if (total > MaxSignalUs)
        return u"lasts %1 ms"_s.arg(total / 1000);
    return {};
}

std::vector<uint32_t> IrTiming::frame() const {
    std::vector<uint32_t> f = durations;
    if (f.size() % 2 == 0 && !f.empty())
        f.pop_back();
    return f;
}

std::vector<uint32_t> IrTiming::repeatFrame() const {
    if (!repeats())
        return {};
    // The repeating part starts on a pulse; a start on a space skips it.
    int from = repeatBegin % 2 == 0 ? repeatBegin : repeatBegin + 1;
    std::vector<uint32_t> f(durations.begin() + std::min<size_t>(from, durations.size()),
                            durations.end());
    if (f.size() % 2 == 0 && !f.empty())
        f.pop_back();
    return f;
}

uint32_t IrTiming::gapUs() const {
    if (durations.size() % 2 == 0 && !durations.empty())
        return durations.back();
    return TiraFacts::DefaultRepeatGapUs;
}

IrTiming TimingFromBlob(const IrBlob& blob) {
    IrTiming t;
    t.durations.reserve(blob.sequence.size());
    for (uint8_t i : blob.sequence)
        t.durations.push_back(uint32_t(blob.table[i]) * uint32_t(blob.timeBase));
    t.carrierHz = blob.pulsePeriodNs > 0 ? int(std::lround(1e9 / blob.pulsePeriodNs)) : 0;
    t.repeatBegin = blob.repeatBegin;
    return t;
}

std::optional<IrBlob> BlobFromTiming(const IrTiming& timing, int* entriesNeeded) {
    if (timing.durations.empty())
        return std::nullopt;
    IrBlob b;
    b.timeBase = TiraFacts::UnitUs;
    // Each duration may take any entry within its tolerance, less the half
    // unit the table's rounding can add. Taken in order, a duration joins the
    // group below while the group's common range still reaches it: the
    // fewest entries that keep every duration in place. One Broadlink unit
    // is tried first, so shared codes come back to the unit when they can.
    struct Group {
        uint32_t first = 0, last = 0;
        double lo = 0, hi = 0, sum = 0;
        uint64_t n = 0;
    };
    std::map<uint32_t, uint64_t> histogram;
    for (uint32_t us : timing.durations)
        ++histogram[us];
    std::vector<Group> groups;
    for (bool tight : {true, false}) {
        groups.clear();
        for (auto [us, n] : histogram) {
            const double reach =
                (tight ? TableToleranceUs(0) : TableToleranceUs(us)) - b.timeBase / 2.0;
            if (groups.empty() || us - reach > groups.back().hi)
                groups.push_back({us, us, us - reach, us + reach, 0, 0});
            Group& g = groups.back();
            g.last = us;
            g.lo = std::max(g.lo, us - reach);
            g.hi = std::min(g.hi, us + reach);
            g.sum += double(us) * double(n);
            g.n += n;
        }
        if (int(groups.size()) <= IrBlob::MaxTable)
            break;
    }
    if (int(groups.size()) > IrBlob::MaxTable) {
        if (entriesNeeded)
            *entriesNeeded = int(groups.size());
        return std::nullopt;
    }
    const uint32_t most = 0xFFFFFF / uint32_t(b.timeBase);
    std::vector<int> tableOf(groups.size(), -1);
    b.sequence.reserve(timing.durations.size());
    for (uint32_t us : timing.durations) {
        const auto g = size_t(std::partition_point(groups.begin(), groups.end(),
                                                   [us](const Group& x) { return x.last < us; }) -
                              groups.begin());
        if (tableOf[g] < 0) {
            const Group& x = groups[g];
            const double at = std::clamp(x.sum / double(x.n), x.lo, x.hi);
            tableOf[g] = int(b.table.size());
            b.table.push_back(
                int32_t(std::clamp<long>(std::lround(at / b.timeBase), 1, long(most))));
        }
        b.sequence.push_back(uint8_t(tableOf[g]));
    }
    b.pulsePeriodNs = timing.carrierHz > 0 ? int32_t(std::lround(1e9 / timing.carrierHz)) : 0;
    b.repeatBegin = timing.repeatBegin;
    return b;
}

IrTiming FoldRepeats(const IrTiming& timing) {
    constexpr uint32_t FrameGapUs = 20000;
    const auto& d = timing.durations;
    // Frames as [begin, end) of pulse..pulse, each followed by its gap.
    std::vector<std::pair<size_t, size_t>> frames;
    size_t begin = 0;
    for (size_t i = 1; i < d.size(); i += 2)
        if (d[i] >= FrameGapUs) {
            frames.push_back({begin, i});
            begin = i + 1;
        }
    size_t end = d.size();
    if (end > begin && (end - begin) % 2 == 0)
        --end; // a short space at the very end
    if (end > begin)
        frames.push_back({begin, end});
    if (frames.size() < 2 || timing.repeatBegin >= 0)
        return timing;
    auto alike = [&](std::pair<size_t, size_t> a, std::pair<size_t, size_t> b) {
        if (a.second - a.first != b.second - b.first)
            return false;
        for (size_t i = 0; i < a.second - a.first; ++i) {
            double x = d[a.first + i], y = d[b.first + i];
            if (std::abs(x - y) > 0.25 * std::max(x, y) + 100)
                return false;
        }
        return true;
    };
    // From the second frame on they must all be alike; with two frames the
    // second is taken as the repeat (an NEC frame and its repeat code).
    for (size_t k = 2; k < frames.size(); ++k)
        if (!alike(frames[1], frames[k]))
            return timing;
    auto gapAfter = [&](size_t k) {
        size_t at = frames[k].second;
        return at < d.size() ? d[at] : d[frames[0].second];
    };
    IrTiming out{{}, timing.carrierHz, 0};
    bool same = alike(frames[0], frames[1]);
    out.durations.assign(d.begin() + long(frames[0].first), d.begin() + long(frames[0].second));
    out.durations.push_back(gapAfter(0));
    if (!same) {
        out.repeatBegin = int(out.durations.size());
        out.durations.insert(out.durations.end(), d.begin() + long(frames[1].first),
                             d.begin() + long(frames[1].second));
        out.durations.push_back(gapAfter(1));
    }
    return out;
}

QString IrCtlText(const std::vector<uint32_t>& durations) {
    QStringList parts;
    for (size_t i = 0; i < durations.size(); ++i)
        parts << (i % 2 == 0 ? u"+"_s : u"-"_s) + QString::number(durations[i]);
    return parts.join(u' ');
}

Clustering ClusterDurations(const std::vector<uint32_t>& values, int maxEntries,
                            uint32_t absTolerance) {
    struct Group {
        uint32_t lo, hi;
        uint64_t sum = 0, n = 0;
    };
    std::map<uint32_t, uint64_t> histogram;
    for (uint32_t v : values)
        ++histogram[v];
    std::vector<Group> groups;
    for (auto [v, n] : histogram) {
        // Values close to the group below join it; jitter of a real capture is
        // a few percent.
        uint32_t tol = std::max<uint32_t>(absTolerance, groups.empty() ? 0 : groups.back().hi / 12);
        if (!groups.empty() && v - groups.back().hi <= tol) {
            groups.back().hi = v;
        } else {
            groups.push_back({v, v});
        }
        groups.back().sum += uint64_t(v) * n;
        groups.back().n += n;
    }
    // Too many: join the closest neighbours, as long as they are not far apart.
    while (int(groups.size()) > maxEntries) {
        size_t best = 0;
        double bestRatio = 1e9;
        for (size_t i = 0; i + 1 < groups.size(); ++i) {
            double ratio = double(groups[i + 1].lo) / groups[i].hi;
            if (ratio < bestRatio) {
                bestRatio = ratio;
                best = i;
            }
        }
        if (bestRatio > 1.5)
            return {};
        groups[best].hi = groups[best + 1].hi;
        groups[best].sum += groups[best + 1].sum;
        groups[best].n += groups[best + 1].n;
        groups.erase(groups.begin() + long(best) + 1);
    }
    Clustering out;
    std::vector<int> tableOf(groups.size(), -1);
    out.index.reserve(values.size());
    for (uint32_t v : values) {
        size_t g = 0;
        while (v > groups[g].hi)
            ++g;
        if (tableOf[g] < 0) {
            tableOf[g] = int(out.table.size());
            out.table.push_back(uint32_t((groups[g].sum + groups[g].n / 2) / groups[g].n));
        }
        out.index.push_back(uint8_t(tableOf[g]));
    }
    return out;
}

int ParseTiraBurst(QByteArrayView stream, TiraBurst* burst) {
    auto word = [&](qsizetype at) {
        return uint32_t(uint8_t(stream[at])) << 8 | uint8_t(stream[at + 1]);
    };
    std::vector<uint32_t> counts;
    for (qsizetype at = 0; at + 1 < stream.size(); at += 2) {
        uint32_t w = word(at);
        if (w != 0) {
            counts.push_back(w);
            continue;
        }
        if (at + 3 >= stream.size())
            return 0; // the trailer is not complete yet
        // A burst starts and ends with a pulse, so the end mark falls on an
        // odd field; anything else is a stream out of step.
        if (counts.size() % 2 == 0 || uint8_t(stream[at + 3]) != TiraFacts::TrailerByte)
            return -1;
        burst->counts = std::move(counts);
        burst->cw = uint8_t(stream[at + 2]);
        return int(at + 4);
    }
    return 0;
}

IrTiming TimingFromTiraBurst(const TiraBurst& burst) {
    IrTiming t;
    for (uint32_t c : burst.counts)
        t.durations.push_back(c * TiraFacts::UnitUs);
    t.carrierHz = TiraFacts::CarrierFromCw(burst.cw);
    return t;
}

QByteArray TiraTransmitCommand(const std::vector<uint32_t>& durationsUs, int carrierHz) {
    if (durationsUs.empty() || durationsUs.size() % 2 == 0)
        return {};
    const int cw = TiraFacts::CwFromCarrier(carrierHz > 0 ? carrierHz : DefaultCarrierHz);
    std::vector<uint32_t> counts;
    counts.reserve(durationsUs.size());
    for (uint32_t us : durationsUs)
        counts.push_back(
            std::clamp<uint32_t>((us + TiraFacts::UnitUs / 2) / TiraFacts::UnitUs, 1, 0xFFFF));
    Clustering c = ClusterDurations(counts, TiraFacts::TransmitTableSize, std::max(1, cw / 16));
    if (c.table.empty())
        return {};
    QByteArray cmd("IX");
    cmd.append(char(cw));
    cmd.append('\0');
    for (int i = 0; i < TiraFacts::TransmitTableSize; ++i) {
        uint32_t v = i < int(c.table.size()) ? c.table[i] : 0;
        cmd.append(char(v >> 8));
        cmd.append(char(v & 0xFF));
    }
    for (size_t i = 0; i < c.index.size(); i += 2) {
        uint8_t space = i + 1 < c.index.size() ? c.index[i + 1] : 0x0F;
        cmd.append(char(c.index[i] << 4 | space));
    }
    return cmd;
}
