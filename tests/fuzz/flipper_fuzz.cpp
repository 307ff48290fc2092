// Flipper Zero .ir files, read from any bytes.
#include "FormatFuzz.h"

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes = FuzzBytes(data, size);
    CheckCodes(ReadFlipper(bytes, u"f"_s), IrFormat::Flipper);
    return 0;
}
