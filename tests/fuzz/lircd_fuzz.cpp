// lircd.conf remotes, each key turned into timings, read from any bytes.
#include "FormatFuzz.h"

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes = FuzzBytes(data, size);
    CheckCodes(ReadLircd(bytes, u"f"_s), IrFormat::Lircd);
    return 0;
}
