// Signal files and the transceiver's capture stream: whatever the bytes, the
// signal read from them converts and encodes without harm.
#include "infrared/IrSignal.h"
#include "infrared/SignalStore.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    // What passes the file check must be a whole blob that decodes.
    const ParsedSignal parsed = ParseSignalFile(bytes);
    if (parsed.error.isEmpty() && !IrBlob::decode(parsed.blob))
        abort();
    if (std::optional<IrBlob> blob = IrBlob::decode(bytes)) {
        const IrTiming timing = TimingFromBlob(*blob);
        const std::vector<uint32_t> frame = timing.frame();
        timing.repeatFrame();
        timing.gapUs();
        blob->encode();
        if (std::optional<IrBlob> again = BlobFromTiming(timing))
            TimingFromBlob(*again);
        TiraTransmitCommand(frame, timing.carrierHz);
        IrCtlText(frame);
        FoldRepeats(timing);
    }
    TiraBurst burst;
    const int used = ParseTiraBurst(bytes, &burst);
    if (used > int(size))
        abort();
    if (used > 0)
        FoldRepeats(TimingFromTiraBurst(burst));
    return 0;
}
