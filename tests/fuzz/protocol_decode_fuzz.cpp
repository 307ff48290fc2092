// The protocol decoder and the code text: whatever the durations, decoding is
// quick and whatever it finds encodes back to the same code.
#include "FormatFuzz.h"
#include "infrared/IrProtocol.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const IrTiming timing = FuzzTiming(data, size);
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
