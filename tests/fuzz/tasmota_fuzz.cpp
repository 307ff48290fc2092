// Tasmota's codes (protocol JSON, IRsend raw lists, the compact raw form),
// read from any bytes; the content's own detection too.
// Seeds: the examples of Tasmota's IR pages (tasmota.github.io/docs/Tasmota-IR
// and IRSend-RAW-Encoding) and IRremoteESP8266's IRsendDemo codes.
#include "FormatFuzz.h"

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes = FuzzBytes(data, size);
    QString error;
    const std::optional<NamedSignal> code = ReadTasmota(bytes, u"f"_s, &error);
    CheckSingle(code, error, IrFormat::Tasmota);
    const IrCodeRead read = ReadIrCodes(bytes, u"f"_s);
    if (read.format)
        CheckCodes(read, *read.format == IrFormat::SmartIr ? IrFormat::Flipper : *read.format);
    return 0;
}
