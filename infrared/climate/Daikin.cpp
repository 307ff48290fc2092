// Daikin's remotes: the state lives in one 19-byte section (power and mode,
// the temperature in half degrees, fan and swing) that the ARC4xx remotes
// send after a preamble of five zero bits and two 8-byte sections (comfort,
// clock): 280 bits. Older remotes send it after one 8-byte section (216 bits),
// some newer ones after the preamble alone (152 bits). Each section ends with
// the sum of its other bytes. The 160-bit remotes lay the state out their own
// way.
#include "infrared/climate/ClimateCodec.h"

using namespace Qt::StringLiterals;

namespace climate {

namespace {

constexpr irproto::PdTiming Bits{3650, 1700, 430, 430, 1300, 20000};
constexpr irproto::PdTiming Preamble{0, 0, 430, 430, 1300, 20000};
constexpr int Carrier = 38000;

constexpr ModeCode Modes[] = {{ClimateMode::Auto, 0},
                              {ClimateMode::Dry, 2},
                              {ClimateMode::Cool, 3},
                              {ClimateMode::Heat, 4},
                              {ClimateMode::Fan, 6}};
constexpr FanCode Fans[] = {{"auto", 0xA}, {"quiet", 0xB}, {"1", 3}, {"2", 4},
                            {"3", 5},      {"4", 6},       {"5", 7}};

constexpr uint8_t Magic[] = {0x11, 0xDA, 0x27};
constexpr uint8_t DryTemp = 0xC0; // what the remotes send in dry mode
constexpr uint8_t FanTemp = 0x32; // 25 °C, in fan mode

// The defaults of the state section's bytes past the fan, as the family's
// remotes send them with timers and extras off.
struct Kind {
    const char16_t* family;
    const char16_t* title;
    uint8_t timers[3]; // bytes 10..12
    uint8_t modeBits;  // bit 3 of byte 5, set by the ARC4xx remotes
    uint8_t byte15, byte17;
};
constexpr Kind K280{u"daikin", u"Daikin ARC4xx (280-bit)", {0x00, 0x06, 0x60}, 0x08, 0xC0, 0x00};
constexpr Kind K216{u"daikin216", u"Daikin ARC433 (216-bit)", {0x00, 0x00, 0x00}, 0x00, 0xC0, 0x00};
constexpr Kind K152{u"daikin152", u"Daikin ARC480 (152-bit)", {0x00, 0x00, 0x00}, 0x00, 0xC5, 0x08};

ClimateCaps caps280();

ClimateCaps capsOf(const Kind& k) {
    ClimateCaps c;
    c.family = QString::fromUtf16(k.family);
    c.title = QString::fromUtf16(k.title);
    c.modes = modesIn(Modes);
    c.minTemp = 10;
    c.maxTemp = 32;
    c.step = 1;
    c.fans = fansIn(Fans);
    c.swing = true;
    c.noTemperature = {ClimateMode::Dry, ClimateMode::Fan};
    c.carrierHz = Carrier;
    return c;
}

Bytes section(std::initializer_list<uint8_t> body) {
    Bytes b(std::size(Magic) + body.size() + 1);
    std::copy(std::begin(Magic), std::end(Magic), b.begin());
    std::copy(body.begin(), body.end(), b.begin() + std::size(Magic));
    b.back() = sumBytes(std::span(b).first(b.size() - 1));
    return b;
}

Bytes stateSection(const Kind& k, const ClimateState& s) {
    Bytes b(19, 0);
    std::copy(std::begin(Magic), std::end(Magic), b.begin());
    b[5] = uint8_t(modeCode(Modes, s.mode) << 4 | k.modeBits | (s.power ? 1 : 0));
    b[6] = s.mode == ClimateMode::Dry   ? DryTemp
           : s.mode == ClimateMode::Fan ? FanTemp
                                        : uint8_t(std::lround(s.temperature * 2));
    b[8] = uint8_t(fanCode(Fans, s.fan) << 4 | (s.swing ? 0xF : 0));
    std::copy(std::begin(k.timers), std::end(k.timers), b.begin() + 10);
    b[15] = k.byte15;
    b[17] = k.byte17;
    b[18] = sumBytes(std::span(b).first(18));
    return b;
}

bool checked(const Bytes& b) {
    return b.size() >= 4 && std::equal(std::begin(Magic), std::end(Magic), b.begin()) &&
           b.back() == sumBytes(std::span(b).first(b.size() - 1));
}

std::optional<ClimateHeard> heardFrom(const Bytes& b) {
    if (!checked(b) || b[3] != 0)
        return std::nullopt;
    const auto mode = modeOf(Modes, b[5] >> 4 & 7);
    const auto fan = fanOf(Fans, b[8] >> 4);
    if (!mode || !fan)
        return std::nullopt;
    ClimateState s;
    s.power = b[5] & 1;
    s.mode = *mode;
    s.fan = *fan;
    s.swing = (b[8] & 0xF) == 0xF;
    s.temperature = b[6] / 2.0;
    // The sizes differ in name only.
    const ClimateCaps& caps = builtOnce<caps280>();
    if (caps.usesTemperature(s.mode) &&
        (s.temperature < caps.minTemp || s.temperature > caps.maxTemp))
        return std::nullopt;
    return heardOf(caps, s);
}

// The sections after the preamble, when the frame has one.
std::optional<std::vector<Bytes>> read(const IrTiming& t, std::initializer_list<int> bits) {
    std::vector<Section> sections;
    for (int n : bits)
        sections.push_back({Bits, n, 0, false});
    return readSections(t, sections, leaderAt(t.durations, 2500));
}

IrTiming write(bool preamble, const std::vector<Bytes>& body) {
    irproto::Writer w;
    if (preamble) {
        const Section p{Preamble, 5, 25000, false};
        writeSections(w, std::span(&p, 1), {Bytes{0}});
    }
    std::vector<Section> sections;
    for (const Bytes& b : body)
        sections.push_back({Bits, int(b.size() * 8), 35000, false});
    writeSections(w, sections, body);
    return timingOf(w, Carrier);
}

// 280 bits: comfort section, clock section (midnight: the unit keeps its
// own clock), state.
ClimateCaps caps280() {
    return capsOf(K280);
}
std::optional<IrTiming> encode280(const ClimateState& s) {
    return write(true, {section({0x00, 0xC5, 0x00, 0x00}), section({0x00, 0x42, 0x00, 0x00}),
                        stateSection(K280, s)});
}
std::optional<ClimateHeard> decode280(const IrTiming& t) {
    const auto b = read(t, {64, 64, 152});
    if (!b || !checked((*b)[0]) || !checked((*b)[1]))
        return std::nullopt;
    return heardFrom((*b)[2]);
}

ClimateCaps caps216() {
    return capsOf(K216);
}
std::optional<IrTiming> encode216(const ClimateState& s) {
    return write(false, {section({0xF0, 0x00, 0x00, 0x00}), stateSection(K216, s)});
}
std::optional<ClimateHeard> decode216(const IrTiming& t) {
    const auto b = read(t, {64, 152});
    if (!b || !checked((*b)[0]))
        return std::nullopt;
    return heardFrom((*b)[1]);
}

ClimateCaps caps152() {
    return capsOf(K152);
}
std::optional<IrTiming> encode152(const ClimateState& s) {
    return write(true, {stateSection(K152, s)});
}
std::optional<ClimateHeard> decode152(const IrTiming& t) {
    const auto b = read(t, {152});
    return b ? heardFrom((*b)[0]) : std::nullopt;
}

// 160 bits, with timings of their own: a fixed section (11 DA 27 F0 0D 00),
// then mode and power, the vane, the temperature above 10 °C in half
// degrees and the fan, each section ending with its sum. Its remotes call
// auto mode 1.
constexpr irproto::PdTiming Bits160{5000, 2145, 350, 700, 1790, 20000};
constexpr ModeCode Modes160[] = {{ClimateMode::Auto, 1}, {ClimateMode::Auto, 0},
                                 {ClimateMode::Dry, 2},  {ClimateMode::Cool, 3},
                                 {ClimateMode::Heat, 4}, {ClimateMode::Fan, 6}};
constexpr uint8_t DryTemp160 = 0x80, FanTemp160 = (25 - 10) * 2;
const Section Sections160[] = {{Bits160, 56, 29650, false}, {Bits160, 104, 40000, false}};

ClimateCaps caps160() {
    ClimateCaps c = capsOf(K280);
    c.family = QStringLiteral("daikin160");
    c.title = QStringLiteral("Daikin ARC423 (160-bit)");
    return c;
}

std::optional<IrTiming> encode160(const ClimateState& s) {
    Bytes b(13, 0);
    std::copy(std::begin(Magic), std::end(Magic), b.begin());
    b[4] = 0xD3;
    b[5] = uint8_t(modeCode(Modes160, s.mode) << 4 | (s.power ? 1 : 0));
    b[6] = s.swing ? 0xF1 : 0x11;
    b[9] = s.mode == ClimateMode::Dry   ? DryTemp160
           : s.mode == ClimateMode::Fan ? FanTemp160
                                        : uint8_t(std::lround((s.temperature - 10) * 2));
    b[10] = fanCode(Fans, s.fan);
    b[11] = 0x08;
    b[12] = sumBytes(std::span(b).first(12));
    irproto::Writer w;
    writeSections(w, Sections160, {section({0xF0, 0x0D, 0x00}), b});
    return timingOf(w, Carrier);
}

std::optional<ClimateHeard> decode160(const IrTiming& t) {
    const auto read = readSections(t, Sections160);
    if (!read || !checked((*read)[0]) || !checked((*read)[1]))
        return std::nullopt;
    const Bytes& b = (*read)[1];
    const auto mode = modeOf(Modes160, b[5] >> 4 & 7);
    const auto fan = fanOf(Fans, b[10] & 0xF);
    if (b[3] != 0 || !mode || !fan)
        return std::nullopt;
    ClimateState s;
    s.power = b[5] & 1;
    s.mode = *mode;
    s.temperature = 10 + b[9] / 2.0;
    s.fan = *fan;
    s.swing = b[6] >> 4 == 0xF;
    const ClimateCaps& caps = builtOnce<caps160>();
    if (caps.usesTemperature(s.mode) && s.temperature > caps.maxTemp)
        return std::nullopt;
    return heardOf(caps, s);
}

} // namespace

const Codec Daikin{builtOnce<caps280>, encode280, decode280};
const Codec Daikin216{builtOnce<caps216>, encode216, decode216};
const Codec Daikin152{builtOnce<caps152>, encode152, decode152};
const Codec Daikin160{builtOnce<caps160>, encode160, decode160};

} // namespace climate
