// Pronto hex, read from any bytes; the content's own detection too.
// Short-form seeds: as RemoteCentral's forum posts 1280830, 706189 and 1023143
// give them.
#include "FormatFuzz.h"

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes = FuzzBytes(data, size);
    QString error;
    const std::optional<NamedSignal> code = ReadPronto(bytes, u"f"_s, &error);
    CheckSingle(code, error, IrFormat::Pronto);
    const IrCodeRead read = ReadIrCodes(bytes, u"f"_s);
    if (read.format)
        CheckCodes(read, *read.format);
    return 0;
}
