#include "infrared/climate/ClimateCodec.h"

// LG's 28-bit state: the maker byte 0x88, power, mode, temperature, fan and a
// nibble sum, MSB first. Older remotes lead with 8.5/4.25 ms, newer ones
// (AKB7x) with 3.2/9.9 ms; off is a frame of its own.

namespace climate {

namespace {

using namespace Qt::StringLiterals;

constexpr Section Frame{{8500, 4250, 550, 550, 1600, 20000}, 28, 39750, true};
constexpr Section Frame2{{3200, 9900, 480, 550, 1600, 20000}, 28, 39750, true};
constexpr uint8_t Sign = 0x88;
constexpr uint8_t PowerOff = 3;
// The mode field: cool 0, dry 1, fan 2, auto 3, heat 4.
constexpr ClimateMode ModeOf[] = {ClimateMode::Cool, ClimateMode::Dry, ClimateMode::Fan,
                                  ClimateMode::Auto, ClimateMode::Heat};
constexpr const char16_t* FanNames[] = {u"auto", u"1", u"2", u"3", u"4"};
constexpr uint8_t FanCodes[] = {5, 0, 1, 2, 4};

// The four nibbles between the maker byte and the sum, mod 16.
uint8_t checksum(uint32_t v) {
    unsigned sum = 0;
    for (int i = 1; i <= 4; ++i)
        sum += v >> 4 * i & 0xF;
    return uint8_t(sum & 0xF);
}

ClimateCaps caps() {
    ClimateCaps c;
    c.family = u"lg"_s;
    c.title = u"LG (28-bit)"_s;
    c.modes = allModes();
    c.minTemp = 16;
    c.maxTemp = 30;
    c.fans = namesOf(FanNames);
    return c;
}

std::optional<IrTiming> encode(const ClimateState& s) {
    uint32_t v = 0x88C0051; // off
    if (s.power) {
        uint8_t mode = 0, fan = FanCodes[0];
        for (uint8_t i = 0; i < std::size(ModeOf); ++i)
            if (ModeOf[i] == s.mode)
                mode = i;
        for (size_t i = 0; i < std::size(FanNames); ++i)
            if (s.fan == QStringView(FanNames[i]))
                fan = FanCodes[i];
        const int temp = std::clamp(wholeDegrees(s.temperature), 16, 30) - 15;
        v = uint32_t(Sign) << 20 | uint32_t(mode) << 12 | uint32_t(temp) << 8 | uint32_t(fan) << 4;
        v |= checksum(v);
    }
    // 28 bits, MSB first: the top nibble of the first byte holds nothing.
    const uint32_t bits = v << 4;
    irproto::Writer w;
    writeSections(
        w, std::span(&Frame, 1),
        {Bytes{uint8_t(bits >> 24), uint8_t(bits >> 16), uint8_t(bits >> 8), uint8_t(bits)}});
    return timingOf(w, 38000);
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    auto read = readSections(t, std::span(&Frame, 1));
    if (!read)
        read = readSections(t, std::span(&Frame2, 1));
    if (!read)
        return std::nullopt;
    const Bytes& b = read->front();
    const uint32_t v =
        (uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3]) >> 4;
    if (v >> 20 != Sign || checksum(v) != (v & 0xF))
        return std::nullopt;
    ClimateHeard h;
    if ((v >> 18 & 3) == PowerOff) {
        h.known = ClimateHeard::Power;
        return h;
    }
    const uint8_t mode = v >> 12 & 7, temp = v >> 8 & 0xF, fan = v >> 4 & 0xF;
    // Swing, light and other keys send frames of the maker byte with
    // fields of their own: not a state.
    if ((v >> 15 & 7) != 0 || mode >= std::size(ModeOf) || temp + 15 < 16)
        return std::nullopt;
    const uint8_t* at = std::find(std::begin(FanCodes), std::end(FanCodes), fan);
    if (at == std::end(FanCodes))
        return std::nullopt;
    h.state.power = true;
    h.state.mode = ModeOf[mode];
    h.state.temperature = temp + 15;
    h.state.fan = QString::fromUtf16(FanNames[at - FanCodes]);
    h.known &= ~ClimateHeard::Swing; // a key of its own
    return h;
}

} // namespace

const Codec Lg{builtOnce<caps>, encode, decode};

} // namespace climate
