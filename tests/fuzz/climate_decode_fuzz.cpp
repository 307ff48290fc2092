// The air-conditioner decoders: whatever the durations, decoding is quick,
// and a state it finds, fitted to its family, encodes to a frame that reads
// back as that state.
#include "infrared/Climate.h"

#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Carrier (32 bits), then durations of 16 bits, both little-endian; the
    // carrier's top byte scales the durations so that long pauses occur too.
    IrTiming timing;
    if (size >= 4) {
        uint32_t carrier = 0;
        std::memcpy(&carrier, data, 4);
        timing.carrierHz = int(carrier & 0xFFFFFF);
        const uint32_t scale = 1 + (carrier >> 24) % 4;
        for (size_t i = 4; i + 1 < size; i += 2)
            timing.durations.push_back(uint32_t(data[i] | data[i + 1] << 8) * scale);
    }
    const std::optional<ClimateHeard> heard = DecodeClimate(timing);
    if (!heard)
        return 0;
    ClimateJson(*heard);
    ClimateStateText(heard->state);
    const std::optional<ClimateCaps> caps = ClimateFamily(heard->family);
    if (!caps)
        abort();
    const ClimateFit fit = FitClimateState(*caps, heard->state);
    if (!fit.state)
        return 0;
    const std::optional<IrTiming> again = EncodeClimate(heard->family, *fit.state);
    if (!again)
        abort();
    const std::optional<ClimateHeard> back = DecodeClimate(*again);
    if (!back || back->family != heard->family || back->onto(*fit.state) != *fit.state)
        abort();
    return 0;
}
