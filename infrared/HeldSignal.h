#pragma once

#include "infrared/IrProtocol.h"
#include "infrared/IrSignal.h"

#include <cstdint>
#include <optional>

// What a held key sends: its first frame once, then its repeat frame again and
// again. A period runs from the start of one frame to the start of the next.
struct HeldSignal {
    IrTiming first;  // pulse ... pulse, no pause after it
    IrTiming repeat; // likewise
    uint32_t firstPeriodUs = 0;
    uint32_t repeatPeriodUs = 0;
};

// A decoded code holds as its protocol does (NEC's repeat code, or the frame
// again) at the protocol's period, on the stored signal's carrier. A raw
// signal repeats its own repeating part when it has one, else its whole
// frame, each at its length plus the pause it ends with. Nothing for an
// empty signal.
std::optional<HeldSignal> HeldSignalOf(const IrTiming& stored, const IrCode& code);
