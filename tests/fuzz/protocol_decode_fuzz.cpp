// The protocol decoder and the code text: whatever the durations, decoding is
// quick and whatever it finds encodes back to the same code.
#include "infrared/IrProtocol.h"

#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), qsizetype(size));
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
    const IrCode code = DecodeSignal(timing);
    if (code.decoded()) {
        const std::optional<IrTiming> clean = EncodeSignal(code);
        if (!clean || DecodeSignal(*clean) != code)
            abort();
        IrCode plain = code;
        plain.repeats = false;
        plain.toggle = false;
        if (ParseCodeSpec(CodeSpec(code)) != plain)
            abort();
        CodeDisplay(code);
        FieldsOf(code);
    }
    if (std::optional<IrBlob> blob = IrBlob::decode(bytes))
        DecodeSignal(TimingFromBlob(*blob));
    if (std::optional<IrCode> parsed = ParseCodeSpec(QString::fromUtf8(bytes)))
        EncodeSignal(*parsed);
    return 0;
}
