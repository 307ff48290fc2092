// Fujitsu General's frames: 14 63 00 10 10, then either a command of its own
// with its complement (02 FD: off) or FE 09 30 and the state: temperature
// above 16 °C with a turn-on flag, mode, fan and swing, and a last byte that
// makes the sum of the state's bytes from the seventh zero.
#include "infrared/climate/ClimateCodec.h"

namespace climate {

namespace {

constexpr irproto::PdTiming Bits{3300, 1600, 420, 400, 1200, 6000};
constexpr int Carrier = 38000;

constexpr ModeCode Modes[] = {{ClimateMode::Auto, 0},
                              {ClimateMode::Cool, 1},
                              {ClimateMode::Dry, 2},
                              {ClimateMode::Fan, 3},
                              {ClimateMode::Heat, 4}};
constexpr FanCode Fans[] = {{"auto", 0}, {"quiet", 4}, {"1", 3}, {"2", 2}, {"3", 1}};
constexpr uint8_t Header[] = {0x14, 0x63, 0x00, 0x10, 0x10};
constexpr uint8_t State = 0xFE, Off = 0x02;
constexpr uint8_t TurnOn = 0x01; // byte 8
constexpr uint8_t SwingV = 0x10; // byte 10

ClimateCaps build() {
    ClimateCaps c;
    c.family = QStringLiteral("fujitsu");
    c.title = QStringLiteral("Fujitsu General");
    c.modes = modesIn(Modes);
    c.minTemp = 16;
    c.maxTemp = 30;
    c.fans = fansIn(Fans);
    c.swing = true;
    c.noTemperature = {ClimateMode::Fan};
    c.carrierHz = Carrier;
    return c;
}

uint8_t check(const Bytes& b) {
    return uint8_t(-sumBytes(std::span(b).subspan(7, 8)));
}

std::optional<IrTiming> encode(const ClimateState& s) {
    Bytes b(s.power ? 16 : 7, 0);
    std::copy(std::begin(Header), std::end(Header), b.begin());
    if (!s.power) {
        b[5] = Off;
        b[6] = uint8_t(~Off);
    } else {
        const int t =
            builtOnce<build>().usesTemperature(s.mode) ? int(std::lround(s.temperature)) : 24;
        b[5] = State;
        b[6] = 0x09;
        b[7] = 0x30;
        b[8] = uint8_t((t - 16) << 4 | TurnOn);
        b[9] = modeCode(Modes, s.mode);
        b[10] = uint8_t(fanCode(Fans, s.fan) | (s.swing ? SwingV : 0));
        b[14] = 0x20;
        b[15] = check(b);
    }
    irproto::Writer w;
    const Section frame{Bits, int(b.size() * 8), 40000, false};
    writeSections(w, std::span(&frame, 1), {b});
    return timingOf(w, Carrier);
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    std::optional<std::vector<Bytes>> read;
    for (int bits : {128, 56}) {
        const Section frame{Bits, bits, 0, false};
        if ((read = readSections(t, std::span(&frame, 1))))
            break;
    }
    if (!read)
        return std::nullopt;
    const Bytes& b = (*read)[0];
    if (!std::equal(std::begin(Header), std::end(Header), b.begin()))
        return std::nullopt;
    if (b.size() == 7) {
        if (b[5] != Off || b[6] != uint8_t(~Off))
            return std::nullopt;
        ClimateHeard heard;
        heard.state.power = false;
        heard.known = ClimateHeard::Power;
        return heard;
    }
    if (b[5] != State || b[15] != check(b))
        return std::nullopt;
    const auto mode = modeOf(Modes, b[9] & 7);
    const auto fan = fanOf(Fans, b[10] & 7);
    if (!mode || !fan)
        return std::nullopt;
    ClimateState s;
    s.power = true;
    s.mode = *mode;
    s.temperature = 16 + (b[8] >> 4);
    s.fan = *fan;
    s.swing = b[10] & SwingV;
    return heardOf(builtOnce<build>(), s);
}

} // namespace

const Codec Fujitsu{builtOnce<build>, encode, decode};

} // namespace climate
