#include "infrared/climate/ClimateCodec.h"

// Electra's 13-byte state, also sent by AUX's remotes (and so by many brands
// built on AUX units): the whole state and a byte sum. AUX's remotes add half
// degrees in byte 3's top bit.

namespace climate {

namespace {

using namespace Qt::StringLiterals;

constexpr Section Frame{{9166, 4470, 646, 547, 1647, 8000}, 104, 100000};
constexpr uint8_t Lead = 0xC3;
// The mode field: auto 0, cool 1, dry 2, heat 4, fan 6.
constexpr std::pair<uint8_t, ClimateMode> Modes[] = {{0, ClimateMode::Auto},
                                                     {1, ClimateMode::Cool},
                                                     {2, ClimateMode::Dry},
                                                     {4, ClimateMode::Heat},
                                                     {6, ClimateMode::Fan}};
constexpr const char16_t* FanNames[] = {u"auto", u"1", u"2", u"3"};
constexpr uint8_t FanCodes[] = {0b101, 0b011, 0b010, 0b001};
constexpr uint8_t SwingOn = 0b000, SwingOff = 0b111;

ClimateCaps caps() {
    ClimateCaps c;
    c.family = u"electra"_s;
    c.title = u"Electra / AUX (104-bit)"_s;
    c.modes = allModes();
    c.minTemp = 16;
    c.maxTemp = 32;
    c.step = 0.5;
    c.fans = namesOf(FanNames);
    c.swing = true;
    return c;
}

std::optional<IrTiming> encode(const ClimateState& s) {
    uint8_t mode = 1, fan = FanCodes[0];
    for (const auto& [code, m] : Modes)
        if (m == s.mode)
            mode = code;
    for (size_t i = 0; i < std::size(FanNames); ++i)
        if (s.fan == QStringView(FanNames[i]))
            fan = FanCodes[i];
    Bytes b(13);
    b[0] = Lead;
    b[1] =
        uint8_t((std::clamp(int(s.temperature), 16, 32) - 8) << 3 | (s.swing ? SwingOn : SwingOff));
    b[2] = uint8_t(SwingOff << 5); // horizontal swing off
    b[3] = halfDegree(s.temperature) ? 0x80 : 0;
    b[4] = uint8_t(fan << 5);
    b[6] = uint8_t(mode << 5);
    b[9] = s.power ? 0x20 : 0;
    b[11] = 0x08; // the light left as it is
    b[12] = sumBytes(std::span(b).first(12));
    irproto::Writer w;
    writeSections(w, std::span(&Frame, 1), {b});
    return timingOf(w, 38000);
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    const auto read = readSections(t, std::span(&Frame, 1));
    if (!read)
        return std::nullopt;
    const Bytes& b = read->front();
    if (b[0] != Lead || b[12] != sumBytes(std::span(b).first(12)))
        return std::nullopt;
    ClimateHeard h;
    const uint8_t mode = b[6] >> 5, fan = b[4] >> 5, temp = (b[1] >> 3) + 8;
    const auto* m = std::find_if(std::begin(Modes), std::end(Modes),
                                 [&](const auto& p) { return p.first == mode; });
    const uint8_t* f = std::find(std::begin(FanCodes), std::end(FanCodes), fan);
    if (m == std::end(Modes) || f == std::end(FanCodes) || temp < 16 || temp > 32)
        return std::nullopt;
    h.state.power = b[9] & 0x20;
    h.state.mode = m->second;
    h.state.temperature = temp + (b[3] & 0x80 ? 0.5 : 0);
    h.state.fan = QString::fromUtf16(FanNames[f - FanCodes]);
    h.state.swing = (b[1] & 7) == SwingOn;
    return h;
}

} // namespace

const Codec Electra{builtOnce<caps>, encode, decode};

} // namespace climate
