// Home Assistant's timing JSON, read from any bytes; the content's own detection too.
#include "FormatFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzSingle(
        data, size, IrFormat::Json,
        [](QByteArrayView b, const QString& n, QString* e) { return ReadTimingJson(b, n, e); });
}
