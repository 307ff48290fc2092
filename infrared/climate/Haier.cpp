#include "infrared/climate/ClimateCodec.h"

// Haier's 14-byte state (YR-W02 remotes and their kin): after a 3 ms pulse and
// space, the leader, the whole state MSB first, the key pressed and a byte sum.

namespace climate {

namespace {

using namespace Qt::StringLiterals;

constexpr double Pre = 3000;
constexpr Section Frame{{3000, 4300, 520, 650, 1650, 8000}, 112, 100000, true};
constexpr uint8_t ModelA = 0xA6, ModelB = 0x59;
// The mode field: auto 0, cool 1, dry 2, heat 4, fan 6.
constexpr std::pair<uint8_t, ClimateMode> Modes[] = {{0, ClimateMode::Auto},
                                                     {1, ClimateMode::Cool},
                                                     {2, ClimateMode::Dry},
                                                     {4, ClimateMode::Heat},
                                                     {6, ClimateMode::Fan}};
constexpr const char16_t* FanNames[] = {u"auto", u"1", u"2", u"3"};
constexpr uint8_t FanCodes[] = {0b101, 0b011, 0b010, 0b001};
constexpr uint8_t SwingAuto = 0xC;
constexpr uint8_t PowerKey = 0b00101; // the key the frame says was pressed

ClimateCaps caps() {
    ClimateCaps c;
    c.family = u"haier"_s;
    c.title = u"Haier YR-W02 (112-bit)"_s;
    c.modes = allModes();
    c.minTemp = 16;
    c.maxTemp = 30;
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
    Bytes b(14);
    b[0] = ModelA;
    b[1] = uint8_t((std::clamp(wholeDegrees(s.temperature), 16, 30) - 16) << 4 |
                   (s.swing ? SwingAuto : 0));
    b[4] = s.power ? 0x40 : 0;
    b[5] = uint8_t(fan << 5);
    b[7] = uint8_t(mode << 5);
    b[12] = PowerKey;
    b[13] = sumBytes(std::span(b).first(13));
    irproto::Writer w;
    w.add(Pre, Pre);
    writeSections(w, std::span(&Frame, 1), {b});
    return timingOf(w, 38000);
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    irproto::Judge j;
    if (t.durations.size() < 4 || !j.near(t.durations[0], Pre) || !j.near(t.durations[1], Pre))
        return std::nullopt;
    const auto read = readSections(t, std::span(&Frame, 1), 2);
    if (!read)
        return std::nullopt;
    const Bytes& b = read->front();
    if ((b[0] != ModelA && b[0] != ModelB) || b[13] != sumBytes(std::span(b).first(13)))
        return std::nullopt;
    const uint8_t mode = b[7] >> 5, fan = b[5] >> 5, temp = (b[1] >> 4) + 16;
    const auto* m = std::find_if(std::begin(Modes), std::end(Modes),
                                 [&](const auto& p) { return p.first == mode; });
    const uint8_t* f = std::find(std::begin(FanCodes), std::end(FanCodes), fan);
    if (m == std::end(Modes) || temp > 30)
        return std::nullopt;
    ClimateHeard h;
    h.state.power = b[4] & 0x40;
    h.state.mode = m->second;
    h.state.temperature = temp;
    // Some remotes leave the fan field empty in auto (their fan is a second
    // field, beyond these bytes).
    h.state.fan = f == std::end(FanCodes) ? u"auto"_s : QString::fromUtf16(FanNames[f - FanCodes]);
    h.state.swing = (b[1] & 0xF) != 0;
    return h;
}

} // namespace

const Codec Haier{builtOnce<caps>, encode, decode};

} // namespace climate
