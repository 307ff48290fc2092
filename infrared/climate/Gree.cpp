#include "infrared/climate/ClimateCodec.h"

// Gree (YB0F2, YAW1F and the many brands built on Gree units): eight bytes in
// two blocks, the first ended by three fixed bits and a 20 ms pause. The nibble
// checksum covers part of the bytes only.

namespace climate {

namespace {

using namespace Qt::StringLiterals;

constexpr uint32_t BlockGap = 19980;
constexpr Section Frame[] = {{{9000, 4500, 620, 540, 1600, BlockGap}, 35, BlockGap},
                             {{0, 0, 620, 540, 1600, BlockGap}, 32, BlockGap}};
constexpr uint8_t BlockFooter = 0b010;
// The mode field: auto 0, cool 1, dry 2, fan 3, heat 4.
constexpr ClimateMode ModeOf[] = {ClimateMode::Auto, ClimateMode::Cool, ClimateMode::Dry,
                                  ClimateMode::Fan, ClimateMode::Heat};
constexpr const char16_t* FanNames[] = {u"auto", u"1", u"2", u"3"};
constexpr uint8_t SwingAuto = 0x40; // byte 0
constexpr uint8_t SwingVAuto = 1;   // byte 4, low nibble

// 10 plus the low nibbles of bytes 0-3 and the high ones of 4-6, mod 16.
uint8_t checksum(const uint8_t* b) {
    unsigned sum = 10;
    for (int i = 0; i < 4; ++i)
        sum += b[i] & 0xF;
    for (int i = 4; i < 7; ++i)
        sum += b[i] >> 4;
    return uint8_t(sum & 0xF);
}

ClimateCaps caps() {
    ClimateCaps c;
    c.family = u"gree"_s;
    c.title = u"Gree (64-bit)"_s;
    c.modes = allModes();
    c.minTemp = 16;
    c.maxTemp = 30;
    c.fans = namesOf(FanNames);
    c.swing = true;
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
    uint8_t b[8] = {
        uint8_t(mode | (s.power ? 0x08 : 0) | fan << 4 | (s.swing ? SwingAuto : 0)),
        uint8_t(std::clamp(wholeDegrees(s.temperature), 16, 30) - 16),
        uint8_t(0x20 | (s.power ? 0x40 : 0)), // the light on; power again for YAW1F units
        0x50,
        uint8_t(s.swing ? SwingVAuto : 0),
        0x20,
        0,
        0};
    b[7] = uint8_t(checksum(b) << 4);
    // Sent twice: the checksum leaves the fan and swing bits out, so the
    // copy is what tells a broken frame (learned codes often hold two).
    const Bytes first{b[0], b[1], b[2], b[3], BlockFooter}, second(b + 4, b + 8);
    const Section twice[] = {Frame[0], Frame[1], Frame[0], Frame[1]};
    irproto::Writer w;
    writeSections(w, twice, {first, second, first, second});
    return timingOf(w, 38000);
}

// One frame from `at`, its checks right; end: the index of its last pause.
std::optional<ClimateHeard> frameAt(const IrTiming& t, size_t at, size_t* end) {
    const auto read = readSections(t, Frame, at, end);
    if (!read || (*read)[0][4] != BlockFooter)
        return std::nullopt;
    uint8_t b[8];
    std::copy_n((*read)[0].begin(), 4, b);
    std::copy_n((*read)[1].begin(), 4, b + 4);
    if (b[7] >> 4 != checksum(b) || (b[0] & 7) > 4)
        return std::nullopt;
    ClimateHeard h;
    h.state.power = b[0] & 0x08;
    h.state.mode = ModeOf[b[0] & 7];
    h.state.fan = QString::fromUtf16(FanNames[b[0] >> 4 & 3]);
    h.state.temperature = 16 + (b[1] & 0xF);
    if (h.state.temperature > 30)
        return std::nullopt;
    h.state.swing = (b[0] & SwingAuto) != 0;
    return h;
}

std::optional<ClimateHeard> decode(const IrTiming& t) {
    size_t end = 0;
    auto heard = frameAt(t, 0, &end);
    if (!heard)
        return std::nullopt;
    // A second frame, when the code holds one, must tell the same state
    // (some remotes change a bit of their own in it).
    if (const auto copy = frameAt(t, end + 1, &end); copy && !(copy->state == heard->state))
        return std::nullopt;
    return heard;
}

} // namespace

const Codec Gree{builtOnce<caps>, encode, decode};

} // namespace climate
