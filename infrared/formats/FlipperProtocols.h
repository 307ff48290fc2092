#pragma once

#include "infrared/formats/IrFormats.h"

// Flipper's protocols (NEC, NECext, NEC42, Samsung32, RC5, RC5X, RC6, SIRC,
// SIRC15, SIRC20, RCA ...) with their address and command, as timings and,
// where the kernel has the protocol, its name and scancode.
bool FlipperParsedSignal(const QString& protocol, uint32_t address, uint32_t command,
                         NamedSignal* signal, QString* why);
// The Flipper protocol, address and command of a decoded signal; false when
// Flipper has none for it (it is then written raw).
bool FlipperParsedOf(const NamedSignal& signal, QString* protocol, uint32_t* address,
                     uint32_t* command);
