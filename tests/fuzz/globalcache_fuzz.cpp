// Global Caché sendir commands, read from any bytes; the content's own detection too.
// Seeds: the sendir example of the API document published at
// docs.itron.nz/api/sendir.html, and an NEC frame with its repeat.
#include "FormatFuzz.h"

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes = FuzzBytes(data, size);
    QString error;
    const std::optional<NamedSignal> code = ReadGlobalCache(bytes, u"f"_s, &error);
    CheckSingle(code, error, IrFormat::GlobalCache);
    const IrCodeRead read = ReadIrCodes(bytes, u"f"_s);
    if (read.format)
        CheckCodes(read, *read.format);
    return 0;
}
