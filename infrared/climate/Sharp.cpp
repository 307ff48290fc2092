#include "infrared/climate/ClimateCodec.h"

// Sharp's 13-byte state (A907 remotes): a fixed maker code, the temperature,
// power, mode, fan and a nibble checksum.

namespace climate {

namespace {

using namespace Qt::StringLiterals;

constexpr Section Frame{{3800, 1900, 470, 500, 1400, 8000}, 104, 100000};
constexpr uint8_t Maker[] = {0xAA, 0x5A, 0xCF, 0x10};
// The mode field: auto 0, heat 1, cool 2, dry 3.
constexpr ClimateMode ModeOf[] = {ClimateMode::Auto, ClimateMode::Heat, ClimateMode::Cool,
                                  ClimateMode::Dry};
constexpr const char16_t* FanNames[] = {u"auto", u"1", u"2", u"3", u"4"};
constexpr uint8_t FanCodes[] = {2, 4, 3, 5, 7};
// Byte 5's high nibble.
constexpr uint8_t PowerOnFromOff = 1, PowerOff = 2, PowerOn = 3;

// The xor of every byte and of the last one's low nibble, folded to a nibble.
uint8_t checksum(const uint8_t* b) {
    uint8_t x = 0;
    for (int i = 0; i < 12; ++i)
        x ^= b[i];
    x ^= b[12] & 0xF;
    return uint8_t((x ^ x >> 4) & 0xF);
}

ClimateCaps caps() {
    ClimateCaps c;
    c.family = u"sharp"_s;
    c.title = u"Sharp (104-bit)"_s;
    c.modes = {ClimateMode::Auto, ClimateMode::Cool, ClimateMode::Heat, ClimateMode::Dry};
    c.minTemp = 15;
    c.maxTemp = 30;
    c.fans = namesOf(FanNames);
    // Auto and dry run at the unit's own temperature.
    c.noTemperature = {ClimateMode::Auto, ClimateMode::Dry};
    return c;
}

bool withTemperature(ClimateMode m) {
    return m == ClimateMode::Cool || m == ClimateMode::Heat;
}

std::optional<IrTiming> encode(const ClimateState& s) {
    uint8_t mode = 0, fan = FanCodes[0];
    for (uint8_t i = 0; i < std::size(ModeOf); ++i)
        if (ModeOf[i] == s.mode)
            mode = i;
    for (size_t i = 0; i < std::size(FanNames); ++i)
        if (s.fan == QStringView(FanNames[i]))
            fan = FanCodes[i];
    uint8_t b[13] = {Maker[0], Maker[1], Maker[2], Maker[3]};
    if (withTemperature(s.mode))
        b[4] = uint8_t(0xC0 | (std::clamp(wholeDegrees(s.temperature), 15, 30) - 15));
    // A unit may be off when the state is sent: "on from off" turns it on
    // either way.
    b[5] = uint8_t((s.power ? PowerOnFromOff : PowerOff) << 4);
    b[6] = uint8_t(mode | fan << 4);
    b[8] = 0x08; // swing left as it is
    b[9] = 0x80;
    b[11] = 0xE0;
    b[12] = 0x01;
    b[12] |= uint8_t(checksum(b) << 4);
    irproto::Writer w;
    writeSections(w, std::span(&Frame, 1), {Bytes(b, b + 13)});
    return timingOf(w, 38000);
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    const auto read = readSections(t, std::span(&Frame, 1));
    if (!read)
        return std::nullopt;
    const uint8_t* b = read->front().data();
    if (!std::equal(std::begin(Maker), std::end(Maker), b) || b[12] >> 4 != checksum(b))
        return std::nullopt;
    const uint8_t power = b[5] >> 4, fan = b[6] >> 4 & 7;
    ClimateHeard h;
    h.state.mode = ModeOf[b[6] & 3];
    h.state.power = power == PowerOnFromOff || power == PowerOn;
    // Other values are frames of a timer or a special key (turbo, econo):
    // they leave the power as it was.
    if (power != PowerOff && !h.state.power)
        h.known &= ~ClimateHeard::Power;
    // The A907's remotes count from 15 °C with 0xC0 above; the AY series'
    // from 17 °C with nothing above (18 to 32 °C on their displays).
    if (withTemperature(h.state.mode))
        h.state.temperature = ((b[4] & 0xF0) == 0xC0 ? 15 : 17) + (b[4] & 0xF);
    else
        h.known &= ~ClimateHeard::Temperature;
    const uint8_t* at = std::find(std::begin(FanCodes), std::end(FanCodes), fan);
    if (at == std::end(FanCodes))
        return std::nullopt;
    h.state.fan = QString::fromUtf16(FanNames[at - FanCodes]);
    h.known &= ~ClimateHeard::Swing;
    return h;
}

} // namespace

const Codec Sharp{builtOnce<caps>, encode, decode};

} // namespace climate
