// Hitachi's 224-bit frame: a fixed header (01 10 30 40 BF 01 FE 11 12), the
// button pressed, mode, temperature times two, fan, vanes, power, and a last
// byte that makes the sum of all of them 62.
#include "infrared/climate/ClimateCodec.h"

namespace climate {

namespace {

constexpr irproto::PdTiming Bits{3400, 1700, 420, 480, 1300, 20000};
constexpr int Carrier = 38000;
constexpr int Length = 28;

constexpr ModeCode Modes[] = {{ClimateMode::Auto, 2},
                              {ClimateMode::Heat, 3},
                              {ClimateMode::Cool, 4},
                              {ClimateMode::Dry, 5},
                              {ClimateMode::Fan, 0xC}};
constexpr FanCode Fans[] = {{"auto", 1}, {"quiet", 2}, {"1", 3}, {"2", 4}, {"3", 5}};
constexpr uint8_t Header[] = {0x01, 0x10, 0x30, 0x40, 0xBF, 0x01, 0xFE};
constexpr uint8_t FanTemp = 64 << 1; // what the remotes send in fan mode
constexpr uint8_t PowerOn = 0x80;    // byte 17
constexpr uint8_t SwingV = 0x01;     // byte 14

ClimateCaps build() {
    ClimateCaps c;
    c.family = QStringLiteral("hitachi");
    c.title = QStringLiteral("Hitachi (224-bit)");
    c.modes = modesIn(Modes);
    c.minTemp = 16;
    c.maxTemp = 32;
    c.fans = fansIn(Fans);
    c.swing = true;
    c.noTemperature = {ClimateMode::Fan};
    c.carrierHz = Carrier;
    return c;
}

uint8_t check(const Bytes& b) {
    return uint8_t(62 - sumBytes(std::span(b).first(Length - 1)));
}

std::optional<IrTiming> encode(const ClimateState& s) {
    Bytes b(Length, 0);
    std::copy(std::begin(Header), std::end(Header), b.begin());
    b[7] = 0x11;
    b[8] = 0x12;
    b[9] = 0x08; // the temperature buttons' code: the unit takes the whole state
    b[10] = modeCode(Modes, s.mode);
    b[11] = s.mode == ClimateMode::Fan ? FanTemp : uint8_t(std::lround(s.temperature) << 1);
    b[13] = fanCode(Fans, s.fan);
    b[14] = s.swing ? SwingV : 0;
    b[15] = 0x03;
    b[17] = s.power ? PowerOn : 0;
    b[24] = 0x01;
    b[27] = check(b);
    irproto::Writer w;
    const Section frame{Bits, Length * 8, 40000, false};
    writeSections(w, std::span(&frame, 1), {b});
    return timingOf(w, Carrier);
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    // Some remotes send a long pulse and pause before the leader.
    size_t at = 0;
    while (at < 4 && at < t.durations.size() && t.durations[at] > 6000)
        at += 2;
    const Section frame{Bits, Length * 8, 0, false};
    const auto read = readSections(t, std::span(&frame, 1), at);
    if (!read)
        return std::nullopt;
    const Bytes& b = (*read)[0];
    if (!std::equal(std::begin(Header), std::end(Header), b.begin()) || b[27] != check(b))
        return std::nullopt;
    const auto mode = modeOf(Modes, b[10]);
    const auto fan = fanOf(Fans, b[13]);
    if (!mode || !fan)
        return std::nullopt;
    ClimateState s;
    s.power = b[17] & PowerOn;
    s.mode = *mode;
    s.temperature = b[11] >> 1;
    s.fan = *fan;
    s.swing = b[14] & SwingV;
    return heardOf(builtOnce<build>(), s);
}

} // namespace

const Codec Hitachi{builtOnce<build>, encode, decode};

} // namespace climate
