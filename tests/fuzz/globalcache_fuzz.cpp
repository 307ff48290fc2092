// Global Caché sendir commands, read from any bytes; the content's own detection too.
// Seeds: the sendir example of the API document published at
// docs.itron.nz/api/sendir.html, and an NEC frame with its repeat.
#include "FormatFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzSingle(data, size, IrFormat::GlobalCache, ReadGlobalCache);
}
