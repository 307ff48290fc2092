// The signal code cache's file from the program folder: read whole or not at
// all, and what is read is written back as it was.
#include "infrared/SignalCodeCache.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const auto records = SignalCodeCache::Parse(bytes);
    if (!records)
        return 0;
    const QByteArray again = SignalCodeCache::Format(*records);
    if (again != bytes)
        abort();
    return 0;
}
