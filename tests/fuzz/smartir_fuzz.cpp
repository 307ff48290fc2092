// SmartIR device files, read from any bytes; the content's own detection too.
// Seeds: SmartIR's media_player/1000.json (Broadlink base64, lists of codes)
// and media_player/9999.json (Pronto), smartHomeHub/SmartIR at e4df295, MIT;
// and a small file of each Raw encoding.
#include "FormatFuzz.h"

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes = FuzzBytes(data, size);
    const IrCodeRead direct = ReadSmartIr(bytes, u"f"_s);
    if (!direct.error.isEmpty() && !direct.codes.empty())
        abort();
    for (const NamedSignal& s : direct.codes)
        if (!TimingProblem(s.timing).isEmpty())
            abort();
    const IrCodeRead read = ReadIrCodes(bytes, u"f"_s);
    if (read.format)
        CheckCodes(read, *read.format == IrFormat::SmartIr ? IrFormat::Flipper : *read.format);
    return 0;
}
