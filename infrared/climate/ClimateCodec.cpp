#include "infrared/climate/ClimateCodec.h"

#include <algorithm>

namespace climate {

namespace {

Bytes bytesOf(const irproto::Bits& bits, bool msbFirst) {
    Bytes out(size_t((bits.count + 7) / 8));
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = msbFirst ? reverseBits(bits.bytes[i]) : bits.bytes[i];
    return out;
}

} // namespace

std::optional<std::vector<Bytes>> readSections(const IrTiming& t, std::span<const Section> sections,
                                               size_t at, size_t* end) {
    std::vector<Bytes> out;
    out.reserve(sections.size());
    const irproto::Durations& d = t.durations;
    for (const Section& s : sections) {
        irproto::Bits bits;
        // Receivers stretch marks and shorten spaces by a good part of a
        // bit's pulse; the threshold between the spaces tells the bits apart.
        irproto::Judge judge;
        judge.slack = s.timing.pulse / 2;
        // The loose pass's count already tells another family's section.
        size_t stop = irproto::twoPass(judge, [&](irproto::Judge& j) {
            bits = {};
            bits.limit = s.bits;
            const size_t end = irproto::readPd(d, at, s.timing, j, bits);
            return bits.count == s.bits ? end : 0;
        });
        if (stop == 0 || bits.count != s.bits)
            return std::nullopt;
        out.push_back(bytesOf(bits, s.msbFirst));
        if (end)
            *end = stop;
        at = stop + 1;
    }
    return out;
}

void writeSections(irproto::Writer& w, std::span<const Section> sections,
                   const std::vector<Bytes>& bytes) {
    for (size_t i = 0; i < sections.size() && i < bytes.size(); ++i) {
        const Section& s = sections[i];
        Bytes b = bytes[i];
        b.resize(size_t((s.bits + 7) / 8));
        if (s.msbFirst)
            for (uint8_t& v : b)
                v = reverseBits(v);
        w.pd(s.timing, b.data(), s.bits);
        w.d.push_back(s.gapUs);
    }
}

IrTiming timingOf(irproto::Writer& w, int carrierHz) {
    IrTiming t;
    t.durations = std::move(w.d);
    t.carrierHz = carrierHz;
    return t;
}

QStringList namesOf(std::span<const char16_t* const> names) {
    QStringList out;
    for (const char16_t* n : names)
        out.append(QString::fromUtf16(n));
    return out;
}

uint8_t sumBytes(std::span<const uint8_t> b) {
    unsigned sum = 0;
    for (uint8_t v : b)
        sum += v;
    return uint8_t(sum);
}

uint8_t xorBytes(std::span<const uint8_t> b) {
    uint8_t x = 0;
    for (uint8_t v : b)
        x ^= v;
    return x;
}

uint8_t sumNibbles(std::span<const uint8_t> b) {
    unsigned sum = 0;
    for (uint8_t v : b)
        sum += (v & 0xF) + (v >> 4);
    return uint8_t(sum & 0xF);
}

uint8_t reverseBits(uint8_t v, int n) {
    uint8_t r = 0;
    for (int i = 0; i < n; ++i)
        r = uint8_t(r << 1 | ((v >> i) & 1));
    return r;
}

uint8_t modeCode(std::span<const ModeCode> table, ClimateMode mode) {
    for (const ModeCode& m : table)
        if (m.mode == mode)
            return m.code;
    return table.empty() ? 0 : table.front().code;
}

std::optional<ClimateMode> modeOf(std::span<const ModeCode> table, uint8_t code) {
    for (const ModeCode& m : table)
        if (m.code == code)
            return m.mode;
    return std::nullopt;
}

uint8_t fanCode(std::span<const FanCode> table, const QString& fan) {
    for (const FanCode& f : table)
        if (fan == QLatin1StringView(f.name))
            return f.code;
    return table.empty() ? 0 : table.front().code;
}

std::optional<QString> fanOf(std::span<const FanCode> table, uint8_t code) {
    for (const FanCode& f : table)
        if (f.code == code)
            return QString::fromLatin1(f.name);
    return std::nullopt;
}

std::vector<ClimateMode> modesIn(std::span<const ModeCode> table) {
    std::vector<ClimateMode> modes;
    for (const ModeCode& m : table)
        if (std::find(modes.begin(), modes.end(), m.mode) == modes.end())
            modes.push_back(m.mode);
    return modes;
}

QStringList fansIn(std::span<const FanCode> table) {
    QStringList fans;
    for (const FanCode& f : table)
        if (!fans.contains(QLatin1StringView(f.name)))
            fans.append(QString::fromLatin1(f.name));
    return fans;
}

ClimateHeard heardOf(const ClimateCaps& caps, const ClimateState& state) {
    ClimateHeard heard;
    heard.state = state;
    if (!caps.usesTemperature(state.mode))
        heard.known &= uint8_t(~ClimateHeard::Temperature);
    if (!caps.swing)
        heard.known &= uint8_t(~ClimateHeard::Swing);
    return heard;
}

size_t leaderAt(const irproto::Durations& d, uint32_t minLeaderUs) {
    for (size_t i = 0; i < d.size() && i < 24; i += 2)
        if (d[i] > minLeaderUs)
            return i;
    return d.size();
}

size_t afterGap(const irproto::Durations& d, size_t from, uint32_t minGapUs) {
    for (size_t i = from | 1; i < d.size(); i += 2)
        if (d[i] >= minGapUs)
            return i + 1;
    return d.size();
}

std::span<const Codec* const> codecs() {
    // clang-format off
    static const std::vector<const Codec*> all = {
        // -- families A --
        &Daikin,
        &Daikin216,
        &Daikin152,
        &Daikin160,
        &Mitsubishi,
        &Panasonic,
        &Toshiba,
        &Hitachi,
        &Fujitsu,
        // -- families B --
        &Sharp, &Gree, &Midea, &Coolix, &Samsung, &Lg, &Electra, &Haier,
    };
    // clang-format on
    return all;
}

} // namespace climate
