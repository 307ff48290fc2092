#include "infrared/climate/ClimateCodec.h"

// Coolix: Midea's 24-bit state, each byte followed by its inverse, MSB first,
// sent twice. Used by Midea, Kaisai, Beko, Toshiba's cheaper lines and many
// other brands. Off and swing are frames of their own.

namespace climate {

namespace {

using namespace Qt::StringLiterals;

constexpr Section Frame{{4692, 4416, 552, 552, 1656, 5244}, 48, 5244, true};
constexpr uint32_t Off = 0xB27BE0;
constexpr uint8_t FanTempCode = 0b1110; // the temperature field in fan mode
// 17..30 °C, a Gray-like code.
constexpr uint8_t TempCodes[] = {0b0000, 0b0001, 0b0011, 0b0010, 0b0110, 0b0111, 0b0101,
                                 0b0100, 0b1100, 0b1101, 0b1001, 0b1000, 0b1010, 0b1011};
// Mode field: cool 0, dry 1, auto 2, heat 3; fan mode is dry with FanTempCode.
constexpr ClimateMode ModeOf[] = {ClimateMode::Cool, ClimateMode::Dry, ClimateMode::Auto,
                                  ClimateMode::Heat};
// Fan field: auto 0b101 (0b000 in auto and dry), 1 0b100, 2 0b010, 3 0b001.
constexpr uint8_t FanCodes[] = {0b101, 0b100, 0b010, 0b001};
constexpr const char16_t* FanNames[] = {u"auto", u"1", u"2", u"3"};

ClimateCaps caps() {
    ClimateCaps c;
    c.family = u"coolix"_s;
    c.title = u"Coolix (Midea 24-bit and its many brands)"_s;
    c.modes = allModes();
    c.minTemp = 17;
    c.maxTemp = 30;
    c.fans = namesOf(FanNames);
    c.noTemperature = {ClimateMode::Fan};
    return c;
}

std::optional<IrTiming> encode(const ClimateState& s) {
    uint32_t v = Off;
    if (s.power) {
        uint8_t mode = 0, temp = FanTempCode;
        for (uint8_t i = 0; i < 4; ++i)
            if (ModeOf[i] == s.mode)
                mode = i;
        if (s.mode == ClimateMode::Fan)
            mode = 1;
        else
            temp = TempCodes[std::clamp(wholeDegrees(s.temperature), 17, 30) - 17];
        uint8_t fan = FanCodes[0];
        for (size_t i = 0; i < std::size(FanNames); ++i)
            if (s.fan == QStringView(FanNames[i]))
                fan = FanCodes[i];
        if (fan == FanCodes[0] && (s.mode == ClimateMode::Auto || s.mode == ClimateMode::Dry))
            fan = 0;
        v = 0xB20000u | uint32_t(fan) << 13 | 0x1Fu << 8 | uint32_t(temp) << 4 | mode << 2;
    }
    Bytes b;
    for (int shift = 16; shift >= 0; shift -= 8) {
        b.push_back(uint8_t(v >> shift));
        b.push_back(uint8_t(~(v >> shift)));
    }
    irproto::Writer w;
    const Section twice[] = {Frame, Frame};
    writeSections(w, twice, {b, b});
    return timingOf(w, 38000);
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    const auto read = readSections(t, std::span(&Frame, 1));
    if (!read)
        return std::nullopt;
    const Bytes& b = read->front();
    uint32_t v = 0;
    for (int i = 0; i < 6; i += 2) {
        if (uint8_t(~b[size_t(i)]) != b[size_t(i) + 1])
            return std::nullopt;
        v = v << 8 | b[size_t(i)];
    }
    if ((v >> 16 & 0xF7) != 0xB2)
        return std::nullopt;
    ClimateHeard h;
    if (v == Off) {
        h.known = ClimateHeard::Power;
        return h;
    }
    const uint8_t temp = v >> 4 & 0xF, mode = v >> 2 & 3, fan = v >> 13 & 7;
    h.state.power = true;
    h.state.mode = ModeOf[mode];
    if (temp == FanTempCode) {
        if (mode != 1)
            return std::nullopt;
        h.state.mode = ClimateMode::Fan;
        h.known &= ~ClimateHeard::Temperature;
    } else {
        const uint8_t* at = std::find(std::begin(TempCodes), std::end(TempCodes), temp);
        if (at == std::end(TempCodes))
            return std::nullopt;
        h.state.temperature = 17 + double(at - TempCodes);
    }
    if (fan == 0) {
        h.state.fan = u"auto"_s;
    } else {
        const uint8_t* at = std::find(std::begin(FanCodes), std::end(FanCodes), fan);
        if (at == std::end(FanCodes))
            return std::nullopt;
        h.state.fan = QString::fromUtf16(FanNames[at - FanCodes]);
    }
    h.known &= ~ClimateHeard::Swing; // a toggle of its own
    return h;
}

} // namespace

const Codec Coolix{builtOnce<caps>, encode, decode};

} // namespace climate
