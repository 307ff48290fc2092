#include "infrared/climate/ClimateCodec.h"

// Midea's 48-bit state (also sold as Pioneer, Comfee, Electrolux...): six
// bytes MSB first, the last a checksum, then the whole frame again inverted.

namespace climate {

namespace {

using namespace Qt::StringLiterals;

constexpr Section Frame{{4480, 4480, 560, 560, 1680, 5600}, 48, 5600, true};
// The mode field: cool 0, dry 1, auto 2, heat 3, fan 4.
constexpr ClimateMode ModeOf[] = {ClimateMode::Cool, ClimateMode::Dry, ClimateMode::Auto,
                                  ClimateMode::Heat, ClimateMode::Fan};
constexpr const char16_t* FanNames[] = {u"auto", u"1", u"2", u"3"};

// Byte 0: 0b10100 and the message type (1: a state).
constexpr uint8_t StateHeader = 0xA1;

// The bytes read back to front, bit-reversed, summed; the negated sum
// reversed again.
uint8_t checksum(const Bytes& b) {
    unsigned sum = 0;
    for (size_t i = 0; i < 5; ++i)
        sum += reverseBits(b[i]);
    return reverseBits(uint8_t(256 - (sum & 0xFF)));
}

ClimateCaps caps() {
    ClimateCaps c;
    c.family = u"midea"_s;
    c.title = u"Midea (48-bit)"_s;
    c.modes = allModes();
    c.minTemp = 17;
    c.maxTemp = 30;
    c.fans = namesOf(FanNames);
    c.noTemperature = {ClimateMode::Fan};
    return c;
}

std::optional<IrTiming> encode(const ClimateState& s) {
    uint8_t mode = 0, fan = 0;
    for (uint8_t i = 0; i < std::size(ModeOf); ++i)
        if (ModeOf[i] == s.mode)
            mode = i;
    for (uint8_t i = 0; i < std::size(FanNames); ++i)
        if (s.fan == QStringView(FanNames[i]))
            fan = i;
    const int temp = s.mode == ClimateMode::Fan ? 25 : wholeDegrees(s.temperature);
    // No timers (0xFF: off, beep off), no remote sensor temperature (0xFF).
    Bytes b{StateHeader,
            uint8_t((s.power ? 0x80 : 0) | fan << 3 | mode),
            uint8_t(std::clamp(temp, 17, 30) - 17),
            0xFF,
            0xFF,
            0};
    b[5] = checksum(b);
    Bytes inverted = b;
    for (uint8_t& v : inverted)
        v = uint8_t(~v);
    irproto::Writer w;
    const Section twice[] = {Frame, Frame};
    writeSections(w, twice, {b, inverted});
    return timingOf(w, 38000);
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    size_t end = 0;
    const auto read = readSections(t, std::span(&Frame, 1), 0, &end);
    if (!read)
        return std::nullopt;
    const Bytes& b = read->front();
    if (b[0] != StateHeader || checksum(b) != b[5] || (b[2] & 0x20) || (b[1] & 7) > 4)
        return std::nullopt;
    // The inverted copy, when the capture holds it, must be one.
    if (auto copy = readSections(t, std::span(&Frame, 1), end + 1)) {
        for (size_t i = 0; i < b.size(); ++i)
            if (uint8_t(~copy->front()[i]) != b[i])
                return std::nullopt;
    }
    ClimateHeard h;
    h.state.power = b[1] & 0x80;
    h.state.mode = ModeOf[b[1] & 7];
    h.state.fan = QString::fromUtf16(FanNames[b[1] >> 3 & 3]);
    h.state.temperature = 17 + (b[2] & 0x1F);
    // Fan mode leaves anything in the field (0x1E from Midea's remotes).
    if (h.state.mode == ClimateMode::Fan)
        h.known &= ~ClimateHeard::Temperature;
    else if (h.state.temperature > 30)
        return std::nullopt;
    h.known &= ~ClimateHeard::Swing; // a toggle of its own
    return h;
}

} // namespace

const Codec Midea{builtOnce<caps>, encode, decode};

} // namespace climate
