// The air-conditioner decoders: whatever the durations, decoding is quick,
// and a state it finds, fitted to its family, encodes to a frame that reads
// back as that state.
#include "FormatFuzz.h"
#include "infrared/Climate.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const IrTiming timing = FuzzTiming(data, size);
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
