// Mitsubishi Electric's 144-bit frame, sent twice: 23 CB 26 01 00, power,
// mode, temperature above 16 °C, the mode's air-flow byte, fan and vane, a
// clock, and the sum of the bytes before the last.
#include "infrared/climate/ClimateCodec.h"

namespace climate {

namespace {

constexpr irproto::PdTiming Bits{3400, 1750, 450, 420, 1300, 10000};
constexpr int Carrier = 38000;
constexpr int Length = 18;

constexpr ModeCode Modes[] = {{ClimateMode::Auto, 4},
                              {ClimateMode::Cool, 3},
                              {ClimateMode::Heat, 1},
                              {ClimateMode::Dry, 2},
                              {ClimateMode::Fan, 7}};
// Bits 0..2 of byte 9.
constexpr FanCode Fans[] = {{"auto", 0}, {"quiet", 5}, {"1", 1}, {"2", 2}, {"3", 3}, {"4", 4}};
constexpr uint8_t Header[] = {0x23, 0xCB, 0x26, 0x01, 0x00};
constexpr uint8_t VaneSwing = 7;
constexpr uint8_t IgnoredTemp = 8; // 24 °C, what the remotes send in dry and fan

ClimateCaps build() {
    ClimateCaps c;
    c.family = QStringLiteral("mitsubishi");
    c.title = QStringLiteral("Mitsubishi Electric (144-bit)");
    c.modes = modesIn(Modes);
    c.minTemp = 16;
    c.maxTemp = 31;
    c.fans = fansIn(Fans);
    c.swing = true;
    c.noTemperature = {ClimateMode::Dry, ClimateMode::Fan};
    c.carrierHz = Carrier;
    return c;
}

std::optional<IrTiming> encode(const ClimateState& s) {
    Bytes b(Length, 0);
    std::copy(std::begin(Header), std::end(Header), b.begin());
    b[5] = s.power ? 0x20 : 0;
    b[6] = uint8_t(modeCode(Modes, s.mode) << 3);
    b[7] = builtOnce<build>().usesTemperature(s.mode) ? uint8_t(std::lround(s.temperature) - 16)
                                                      : IgnoredTemp;
    b[8] = 0x30 | (s.mode == ClimateMode::Cool ? 6 : s.mode == ClimateMode::Dry ? 2 : 0);
    b[9] = uint8_t(0x40 | (s.swing ? VaneSwing << 3 : 0) | fanCode(Fans, s.fan));
    b[17] = sumBytes(std::span(b).first(17));
    irproto::Writer w;
    const Section sections[] = {{Bits, Length * 8, 17000, false}, {Bits, Length * 8, 40000, false}};
    writeSections(w, sections, {b, b});
    return timingOf(w, Carrier);
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    // The second copy when a receiver lost the first one's start.
    const Section copy{Bits, Length * 8, 0, false};
    auto read = readSections(t, std::span(&copy, 1));
    if (!read)
        read = readSections(t, std::span(&copy, 1), afterGap(t.durations, 0, 8000));
    if (!read)
        return std::nullopt;
    const Bytes& b = (*read)[0];
    if (!std::equal(std::begin(Header), std::end(Header), b.begin()) ||
        b[17] != sumBytes(std::span(b).first(17)))
        return std::nullopt;
    const auto mode = modeOf(Modes, b[6] >> 3 & 7);
    const auto fan = fanOf(Fans, b[9] & 7);
    if (!mode || !fan)
        return std::nullopt;
    ClimateState s;
    s.power = b[5] & 0x20;
    s.mode = *mode;
    s.temperature = 16 + (b[7] & 0xF);
    s.fan = *fan;
    s.swing = (b[9] >> 3 & 7) == VaneSwing;
    return heardOf(builtOnce<build>(), s);
}

} // namespace

const Codec Mitsubishi{builtOnce<build>, encode, decode};

} // namespace climate
