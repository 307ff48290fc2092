#pragma once

// What every air-conditioner family shares: its capabilities, an encoder of a
// whole state and a decoder of a frame, and readers and writers of the
// pulse-distance sections nearly all of them send. Internal to infrared/; the
// public face is infrared/Climate.h.

#include "infrared/Climate.h"
#include "infrared/protocols/Framing.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace climate {

using Bytes = std::vector<uint8_t>;

// One stretch of a message: optional leader, bits (pulse + short/long space),
// a trailer pulse, then the pause before the next section (or the message's
// end).
struct Section {
    irproto::PdTiming timing;
    int bits = 0;       // exact count read and written
    uint32_t gapUs = 0; // pause written after the section
    bool msbFirst = false;
};

// Reads the sections one after another from `at` (a leader of the first
// marks where it starts). Each section's bits come back as bytes, LSB of
// each byte first (MSB first where the section says so). Nothing when a
// section does not match exactly its bit count.
std::optional<std::vector<Bytes>> readSections(const IrTiming& t, std::span<const Section> sections,
                                               size_t at = 0, size_t* end = nullptr);
// Writes the sections with their bytes; the last gap ends the message.
void writeSections(irproto::Writer& w, std::span<const Section> sections,
                   const std::vector<Bytes>& bytes);
IrTiming timingOf(irproto::Writer& w, int carrierHz);

// Checks most families use.
uint8_t sumBytes(std::span<const uint8_t> b); // mod 256
uint8_t xorBytes(std::span<const uint8_t> b);
uint8_t sumNibbles(std::span<const uint8_t> b); // both nibbles of each, mod 16
uint8_t reverseBits(uint8_t v, int n = 8);

// Clamp-free helpers for the codec's own fields.
inline int wholeDegrees(double t) {
    return int(t + (t >= 0 ? 0.5 : -0.5));
}
inline bool halfDegree(double t) {
    return int(t * 2 + 0.5) % 2 == 1;
}

// A family's codes of its modes and fans, both ways. Encoding takes the first
// row of a name, decoding the first row of a code.
struct ModeCode {
    ClimateMode mode;
    uint8_t code;
};
struct FanCode {
    const char* name;
    uint8_t code;
};
uint8_t modeCode(std::span<const ModeCode> table, ClimateMode mode);
std::optional<ClimateMode> modeOf(std::span<const ModeCode> table, uint8_t code);
uint8_t fanCode(std::span<const FanCode> table, const QString& fan);
std::optional<QString> fanOf(std::span<const FanCode> table, uint8_t code);
std::vector<ClimateMode> modesIn(std::span<const ModeCode> table);
QStringList fansIn(std::span<const FanCode> table);

// A decoded state as heard: the temperature unknown in a mode that ignores
// it, the swing unknown where the family has none.
ClimateHeard heardOf(const ClimateCaps& caps, const ClimateState& state);

// Where a message's first leader (a pulse over minLeaderUs) starts, past the
// short bits some remotes send before it, however many of those a capture
// kept; size when there is none in the first durations.
size_t leaderAt(const irproto::Durations& d, uint32_t minLeaderUs);

// The index past the first space of at least minGapUs from `from` (where a
// message sent twice starts again), or size.
size_t afterGap(const irproto::Durations& d, size_t from, uint32_t minGapUs);

// Every mode, as most families have them all.
inline std::vector<ClimateMode> allModes() {
    return {ClimateMode::Auto, ClimateMode::Cool, ClimateMode::Heat, ClimateMode::Dry,
            ClimateMode::Fan};
}
// A family's table of fan names as caps list them.
QStringList namesOf(std::span<const char16_t* const> names);

// A family's caps built once: its decoder consults them on every frame.
template <ClimateCaps (*Build)()> const ClimateCaps& builtOnce() {
    static const ClimateCaps caps = Build();
    return caps;
}

struct Codec {
    const ClimateCaps& (*caps)(); // builtOnce<the family's builder>
    // The state was fitted to caps already.
    std::optional<IrTiming> (*encode)(const ClimateState& s);
    std::optional<ClimateHeard> (*decode)(const IrTiming& t);
};

// One per family (a file each under infrared/climate/); declared here, listed
// in codecs() in decoding order.
// -- families A --
extern const Codec Daikin;
extern const Codec Daikin216;
extern const Codec Daikin152;
extern const Codec Daikin160;
extern const Codec Mitsubishi;
extern const Codec Panasonic;
extern const Codec Toshiba;
extern const Codec Hitachi;
extern const Codec Fujitsu;
// -- families B --
extern const Codec Coolix;
extern const Codec Midea;
extern const Codec Gree;
extern const Codec Samsung;
extern const Codec Sharp;
extern const Codec Lg;
extern const Codec Electra;
extern const Codec Haier;

// The table, in decoding order.
std::span<const Codec* const> codecs();

} // namespace climate
