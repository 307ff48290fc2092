#include "infrared/climate/ClimateCodec.h"

// Samsung's 14- or 21-byte state: a short preamble, then sections of seven
// bytes, each with its own leader and a checksum over its bits. The 21-byte
// form (an extra middle section) is what the remote sends when power changes;
// the units take it always, so it is the one written.

namespace climate {

namespace {

using namespace Qt::StringLiterals;

constexpr double PreamblePulse = 690, PreambleSpace = 17844;
constexpr Section Part{{3086, 8864, 586, 436, 1432, 2886}, 56, 2886};
constexpr uint32_t EndGap = 100000;
// The mode field: auto 0, cool 1, dry 2, fan 3, heat 4.
constexpr ClimateMode ModeOf[] = {ClimateMode::Auto, ClimateMode::Cool, ClimateMode::Dry,
                                  ClimateMode::Fan, ClimateMode::Heat};
constexpr const char16_t* FanNames[] = {u"auto", u"1", u"2", u"3", u"4"};
constexpr uint8_t FanCodes[] = {0, 2, 4, 5, 7}; // 6 is auto too, 7 turbo
constexpr uint8_t SwingV = 0b010, SwingBoth = 0b100, SwingOff = 0b111;

int bits(unsigned v) {
    return std::popcount(v);
}

// The inverted count of the section's set bits, leaving out the checksum's
// own nibbles (byte 1's high, byte 2's low).
uint8_t checksum(const uint8_t* s) {
    int n = bits(s[0]) + bits(s[1] & 0xFu) + bits(s[2] & 0xF0u);
    for (int i = 3; i < 7; ++i)
        n += bits(s[i]);
    return uint8_t(~n);
}

void setChecksum(uint8_t* s) {
    const uint8_t sum = checksum(s);
    s[1] = uint8_t((s[1] & 0x0F) | (sum & 0xF) << 4);
    s[2] = uint8_t((s[2] & 0xF0) | sum >> 4);
}

bool checksumRight(const Bytes& s) {
    const uint8_t sum = checksum(s.data());
    return s[1] >> 4 == (sum & 0xF) && (s[2] & 0xF) == sum >> 4;
}

ClimateCaps caps() {
    ClimateCaps c;
    c.family = u"samsung"_s;
    c.title = u"Samsung (14/21-byte)"_s;
    c.modes = allModes();
    c.minTemp = 16;
    c.maxTemp = 30;
    c.fans = namesOf(FanNames);
    c.swing = true;
    return c;
}

std::optional<IrTiming> encode(const ClimateState& s) {
    uint8_t mode = 0, fan = 0;
    for (uint8_t i = 0; i < std::size(ModeOf); ++i)
        if (ModeOf[i] == s.mode)
            mode = i;
    for (size_t i = 0; i < std::size(FanNames); ++i)
        if (s.fan == QStringView(FanNames[i]))
            fan = FanCodes[i];
    const uint8_t power = s.power ? 0x30 : 0;
    Bytes first{0x02, 0x02, 0x00, 0x00, 0x00, 0x00, uint8_t(0xC0 | power)};
    Bytes middle{0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00};
    Bytes state{0x01,
                0x02,
                uint8_t(0x80 | (s.swing ? SwingV : SwingOff) << 4),
                0x71, // the display on
                uint8_t((std::clamp(wholeDegrees(s.temperature), 16, 30) - 16) << 4),
                uint8_t(0x01 | fan << 1 | mode << 4),
                uint8_t(0xC0 | power)};
    for (Bytes* b : {&first, &middle, &state})
        setChecksum(b->data());
    irproto::Writer w;
    w.add(PreamblePulse, PreambleSpace);
    Section parts[] = {Part, Part, Part};
    parts[2].gapUs = EndGap;
    writeSections(w, parts, {first, middle, state});
    return timingOf(w, 38000);
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    const irproto::Durations& d = t.durations;
    irproto::Judge j;
    j.tol = 0.3;
    if (d.size() < 4 || !j.near(d[0], PreamblePulse) || !j.near(d[1], PreambleSpace))
        return std::nullopt;
    // Three sections, or two.
    const Section three[] = {Part, Part, Part};
    auto read = readSections(t, three, 2);
    if (!read)
        read = readSections(t, std::span(three, 2), 2);
    if (!read)
        return std::nullopt;
    for (const Bytes& s : *read)
        if (!checksumRight(s))
            return std::nullopt;
    const Bytes& first = read->front();
    const Bytes& s = read->back();
    if (first[0] != 0x02 || s[0] != 0x01)
        return std::nullopt;
    const uint8_t mode = s[5] >> 4 & 7, fan = s[5] >> 1 & 7, swing = s[2] >> 4 & 7;
    if (mode >= std::size(ModeOf))
        return std::nullopt;
    ClimateHeard h;
    h.state.power = (s[6] & 0x30) == 0x30 && (first[6] & 0x30) == 0x30;
    h.state.mode = ModeOf[mode];
    h.state.temperature = 16 + (s[4] >> 4);
    if (h.state.temperature > 30)
        return std::nullopt;
    h.state.fan = u"auto"_s;
    for (size_t i = 0; i < std::size(FanCodes); ++i)
        if (fan == FanCodes[i])
            h.state.fan = QString::fromUtf16(FanNames[i]);
    h.state.swing = swing == SwingV || swing == SwingBoth;
    return h;
}

} // namespace

const Codec Samsung{builtOnce<caps>, encode, decode};

} // namespace climate
