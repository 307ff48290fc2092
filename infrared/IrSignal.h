#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

// Every driver hands over and takes a signal in one byte format: the blob of the
// transceiver maker's library (32-bit little-endian header, a table of
// durations, one index byte per duration). Signal files hold it, so files
// learned elsewhere keep working and any transceiver can send them.
struct IrBlob {
    static constexpr int HeaderSize = 92;
    static constexpr int MaxTable = 16;

    int32_t timeBase = 8;       // µs per table unit
    std::vector<int32_t> table; // durations in timeBase units, in use only
    int32_t pulsePeriodNs = 0;  // carrier period; 0 when unknown
    int32_t repeatSelect = 1;
    int32_t repeatBegin = -1;      // index where the repeating part starts, -1 none
    std::vector<uint8_t> sequence; // pulse, space, pulse, ... as table indexes

    QByteArray encode() const;
    // Reads a blob that the bytes hold whole (bytes beyond it are ignored).
    // Nothing when it is not a blob or is cut short.
    static std::optional<IrBlob> decode(QByteArrayView bytes);
};

// What a transceiver can send: carriers outside this range are damage. A key's
// signal may last seconds (some fans send a message of 7 s), not more than 10
// (the reply waits grow with the length).
constexpr int MinCarrierHz = 10000;
constexpr int MaxCarrierHz = 500000;
constexpr uint64_t MaxSignalUs = 10000000;
// Why a well-formed blob is still not to be sent; empty when it may be.
QString SignalProblem(const IrBlob& blob);

// A signal as the air sees it: pulse, space, ..., in µs, and the carrier.
// An even count means the last entry is the pause after the frame.
struct IrTiming {
    std::vector<uint32_t> durations;
    int carrierHz = 0;    // 0 when unknown
    int repeatBegin = -1; // index into durations, -1 none

    // The first send (everything, without a final pause), the part that
    // repeats (empty when none does) and the pause before each repeat.
    std::vector<uint32_t> frame() const;
    std::vector<uint32_t> repeatFrame() const;
    uint32_t gapUs() const;
    bool repeats() const { return repeatBegin >= 0 && repeatBegin < int(durations.size()); }
};

constexpr int DefaultCarrierHz = 38000;

IrTiming TimingFromBlob(const IrBlob& blob);
// Near-equal durations share a table entry, as a learned signal needs, but
// none moves by more than TableToleranceUs. Nothing when the durations need
// more than MaxTable entries for that; entriesNeeded then says how many.
std::optional<IrBlob> BlobFromTiming(const IrTiming& timing, int* entriesNeeded = nullptr);
// 5 %, or one Broadlink unit (269/8192 ms) for short durations, so codes
// shared in that unit come back from a signal file as they were.
inline double TableToleranceUs(double us) {
    return us * 0.05 > 32.837 ? us * 0.05 : 32.837;
}

// A captured message of several frames (a key held down) in the form the
// maker's library keeps: the first frame, then one copy of the frame that
// repeats. Messages whose frames differ are kept whole.
IrTiming FoldRepeats(const IrTiming& timing);

// "+9000 -4500 +560" as ir-ctl reads and writes it.
QString IrCtlText(const std::vector<uint32_t>& durations);

// The Tira-2's capture stream: P S P ... P 00 00 CW B2, 16-bit big-endian counts
// of 8 µs. Returns the bytes used by the first complete burst (0 when more are
// needed, -1 when the stream is out of step) and the burst itself.
struct TiraBurst {
    std::vector<uint32_t> counts; // 8 µs units
    int cw = 0;
};
int ParseTiraBurst(QByteArrayView stream, TiraBurst* burst);
IrTiming TimingFromTiraBurst(const TiraBurst& burst);

// The "IX" command that sends durations (odd count, pulse first and last) on a
// Tira-2; empty when the signal cannot be expressed in twelve table entries.
QByteArray TiraTransmitCommand(const std::vector<uint32_t>& durationsUs, int carrierHz);

// Groups durations (any unit) into at most maxEntries clusters. Values within
// absTolerance or a few percent of each other always share one. Returns the
// table in order of first use and, for each input, its table index; empty
// table when they cannot be brought down to maxEntries.
struct Clustering {
    std::vector<uint32_t> table;
    std::vector<uint8_t> index;
};
Clustering ClusterDurations(const std::vector<uint32_t>& values, int maxEntries,
                            uint32_t absTolerance);
