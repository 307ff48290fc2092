// Pronto hex, read from any bytes; the content's own detection too.
// Short-form seeds: as RemoteCentral's forum posts 1280830, 706189 and 1023143
// give them.
#include "FormatFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzSingle(data, size, IrFormat::Pronto, ReadPronto);
}
