// Toshiba's frame, MSB first and sent twice: F2 0D, the count of bytes past
// the fourth less two and its complement, then temperature above 17 °C, fan
// and mode (off being a mode of its own), and the XOR of the bytes before.
// The remotes send 72 bits; some add bytes of extras (80 and 88 bits).
#include "infrared/climate/ClimateCodec.h"

namespace climate {

namespace {

constexpr irproto::PdTiming Bits{4400, 4300, 550, 540, 1600, 5000};
constexpr int Carrier = 38000;

constexpr ModeCode Modes[] = {{ClimateMode::Auto, 0},
                              {ClimateMode::Cool, 1},
                              {ClimateMode::Dry, 2},
                              {ClimateMode::Heat, 3},
                              {ClimateMode::Fan, 4}};
constexpr uint8_t Off = 7;
// Bits 5..7 of byte 6.
constexpr FanCode Fans[] = {{"auto", 0}, {"1", 2}, {"2", 3}, {"3", 4}, {"4", 5}, {"5", 6}};

ClimateCaps build() {
    ClimateCaps c;
    c.family = QStringLiteral("toshiba");
    c.title = QStringLiteral("Toshiba");
    c.modes = modesIn(Modes);
    c.minTemp = 17;
    c.maxTemp = 30;
    c.fans = fansIn(Fans);
    c.noTemperature = {ClimateMode::Fan};
    c.carrierHz = Carrier;
    return c;
}

std::optional<IrTiming> encode(const ClimateState& s) {
    const ClimateCaps& c = builtOnce<build>();
    const double t = c.usesTemperature(s.mode) ? s.temperature : c.minTemp;
    Bytes b = {0xF2, 0x0D, 0x03, 0xFC, 0x01, 0, 0, 0, 0};
    b[5] = uint8_t((std::lround(t) - 17) << 4);
    b[6] = uint8_t(fanCode(Fans, s.fan) << 5 | (s.power ? modeCode(Modes, s.mode) : Off));
    b[8] = xorBytes(std::span(b).first(8));
    irproto::Writer w;
    const Section sections[] = {{Bits, 72, 7400, true}, {Bits, 72, 40000, true}};
    writeSections(w, sections, {b, b});
    return timingOf(w, Carrier);
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    // Any length, from either copy (a receiver may lose the first one's start).
    auto readAt = [&](size_t at) -> std::optional<std::vector<Bytes>> {
        for (int bits : {72, 80, 88}) {
            const Section copy{Bits, bits, 0, true};
            if (auto read = readSections(t, std::span(&copy, 1), at))
                return read;
        }
        return std::nullopt;
    };
    auto read = readAt(0);
    if (!read)
        read = readAt(afterGap(t.durations, 0, 5000));
    if (!read)
        return std::nullopt;
    const Bytes& b = (*read)[0];
    if (b[0] != 0xF2 || b[1] != 0x0D || b[2] + 6u != b.size() || uint8_t(b[2] ^ b[3]) != 0xFF ||
        b.back() != xorBytes(std::span(b).first(b.size() - 1)))
        return std::nullopt;
    if ((b[6] & 7) == Off) {
        ClimateHeard heard;
        heard.state.power = false;
        heard.known = ClimateHeard::Power;
        return heard;
    }
    const auto mode = modeOf(Modes, b[6] & 7);
    const auto fan = fanOf(Fans, b[6] >> 5);
    if (!mode || !fan)
        return std::nullopt;
    ClimateState s;
    s.power = true;
    s.mode = *mode;
    s.temperature = 17 + (b[5] >> 4);
    s.fan = *fan;
    return heardOf(builtOnce<build>(), s);
}

} // namespace

const Codec Toshiba{builtOnce<build>, encode, decode};

} // namespace climate
