// Panasonic's 216-bit frame: a fixed 8-byte section (02 20 E0 04 00 00 00 06),
// then 19 bytes: the same header, power and mode, the temperature in half
// degrees, fan and vertical vane, timers, quiet, and the sum of the section's
// other bytes.
#include "infrared/climate/ClimateCodec.h"

namespace climate {

namespace {

constexpr irproto::PdTiming Bits{3500, 1750, 435, 435, 1300, 7000};
constexpr int Carrier = 36700;

constexpr ModeCode Modes[] = {{ClimateMode::Auto, 0},
                              {ClimateMode::Dry, 2},
                              {ClimateMode::Cool, 3},
                              {ClimateMode::Heat, 4},
                              {ClimateMode::Fan, 6}};
// The high nibble of byte 8; quiet is the lowest speed with a flag of its own.
constexpr FanCode Fans[] = {{"auto", 0xA}, {"1", 3}, {"2", 4}, {"3", 5}, {"4", 6}, {"5", 7}};
constexpr uint8_t Header[] = {0x02, 0x20, 0xE0, 0x04, 0x00};
constexpr uint8_t First[] = {0x02, 0x20, 0xE0, 0x04, 0x00, 0x00, 0x00, 0x06};
constexpr uint8_t QuietFlag = 0x20; // byte 13
constexpr uint8_t VaneSwing = 0xF, VaneHighest = 0x1;
constexpr uint8_t FanTemp = 27 * 2; // what the remotes send in fan mode

ClimateCaps build() {
    ClimateCaps c;
    c.family = QStringLiteral("panasonic");
    c.title = QStringLiteral("Panasonic (216-bit)");
    c.modes = modesIn(Modes);
    c.minTemp = 16;
    c.maxTemp = 30;
    c.step = 0.5;
    c.fans = fansIn(Fans);
    c.fans.insert(1, QStringLiteral("quiet"));
    c.swing = true;
    c.noTemperature = {ClimateMode::Fan};
    c.carrierHz = Carrier;
    return c;
}

const Section Sections[] = {{Bits, 64, 10000, false}, {Bits, 152, 40000, false}};

std::optional<IrTiming> encode(const ClimateState& s) {
    Bytes b(19, 0);
    std::copy(std::begin(Header), std::end(Header), b.begin());
    b[5] = uint8_t(modeCode(Modes, s.mode) << 4 | 0x08 | (s.power ? 1 : 0));
    b[6] = s.mode == ClimateMode::Fan ? FanTemp : uint8_t(std::lround(s.temperature * 2));
    b[7] = 0x80;
    const bool quiet = s.fan == u"quiet";
    b[8] = uint8_t((quiet ? 3 : fanCode(Fans, s.fan)) << 4 | (s.swing ? VaneSwing : VaneHighest));
    b[11] = 0x0E; // timers off
    b[12] = 0xE0;
    b[13] = quiet ? QuietFlag : 0;
    b[15] = 0x81;
    b[18] = sumBytes(std::span(b).first(18));
    irproto::Writer w;
    writeSections(w, Sections, {Bytes(std::begin(First), std::end(First)), b});
    return timingOf(w, Carrier);
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    const auto read = readSections(t, Sections);
    if (!read)
        return std::nullopt;
    const Bytes& first = (*read)[0];
    const Bytes& b = (*read)[1];
    if (!std::equal(std::begin(First), std::end(First), first.begin()) ||
        !std::equal(std::begin(Header), std::end(Header), b.begin()) ||
        b[18] != sumBytes(std::span(b).first(18)))
        return std::nullopt;
    const auto mode = modeOf(Modes, b[5] >> 4 & 7);
    const auto fan = fanOf(Fans, b[8] >> 4);
    if (!mode || !fan)
        return std::nullopt;
    ClimateState s;
    s.power = b[5] & 1;
    s.mode = *mode;
    s.temperature = b[6] / 2.0;
    s.fan = b[13] & QuietFlag ? QStringLiteral("quiet") : *fan;
    s.swing = (b[8] & 0xF) == VaneSwing;
    const ClimateCaps& c = builtOnce<build>();
    if (c.usesTemperature(s.mode) && (s.temperature < c.minTemp || s.temperature > c.maxTemp))
        return std::nullopt;
    return heardOf(c, s);
}

} // namespace

const Codec Panasonic{builtOnce<build>, encode, decode};

} // namespace climate
