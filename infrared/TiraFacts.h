#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

// What we take the Tira-2 and its maker's library to do. The items marked
// "assumed" are readings that nobody has yet checked against a device; they
// live here alone so that a check on real hardware changes one place.
namespace TiraFacts {

constexpr uint32_t UnitUs = 8;        // one count of the timing stream and of "IX"
constexpr int TransmitTableSize = 12; // durations an "IX" command can name
constexpr uint8_t TrailerByte = 0xB2; // last byte of a captured burst
constexpr int NominalBaud = 9600;     // the driver runs the line at 100 000 anyway
constexpr int SettleMs = 50;          // after setting up the port
constexpr int ReplyTimeoutMs = 500;   // LIRC reads replies after 200 ms

// Assumed: the capture trailer codes the carrier as "IX" does, in 0.5 µs ticks.
inline int CarrierFromCw(int cw) {
    return cw > 0 ? int(std::lround(2000000.0 / cw)) : 0;
}
// Integer division as the device expects, with a little slack so that a
// frequency made from a code gives that code back (38 462 Hz -> 52).
inline int CwFromCarrier(int hz) {
    return std::min(255, int(2000000.0 / std::max(1, hz) + 0.05));
}

// Assumed: "IC" with two zero bytes starts timing mode; "IR" ends it and so
// cancels a capture; the fourth byte of "IX" is reserved and sent as 0.
constexpr char CaptureCommand[] = {'I', 'C', 0, 0};

// Assumed: "OIX" comes after the signal has gone out, so the wait for it
// grows with the signal's length.
constexpr int TransmitReplySlackMs = 300;

// Assumed: the library's repeat count means sends beyond the first; the
// repeating part of a signal follows the first send that many times, each
// after the pause the signal ends with. A signal without a repeating part
// goes out once (so a volume key steps once).
constexpr int TransmitRepeat = 3;
constexpr uint32_t DefaultRepeatGapUs = 40000;

// Assumed: like the maker's library, a capture listens this long after the
// first burst to find the part that repeats while the key is held.
constexpr int CaptureWindowMs = 350;

} // namespace TiraFacts
