// ESPHome lists and comma-separated durations,, read from any bytes; the content's own detection
// too.
// Seeds: the "Received Raw" dump of ESPHome's "Setting up RMT devices" guide
// (esphome.io/guides/setting_up_rmt_devices) and a plain list.
#include "FormatFuzz.h"

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes = FuzzBytes(data, size);
    QString error;
    const std::optional<NamedSignal> code = ReadRawList(bytes, u"f"_s, &error);
    CheckSingle(code, error, IrFormat::RawList);
    const IrCodeRead read = ReadIrCodes(bytes, u"f"_s);
    if (read.format)
        CheckCodes(read, *read.format);
    return 0;
}
