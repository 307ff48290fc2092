// Broadlink packets, base64 or hex, read from any bytes; the content's own detection too.
#include "FormatFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzSingle(data, size, IrFormat::Broadlink,
                      [](QByteArrayView b, const QString& n, QString* e) {
                          return ReadBroadlink(b, n, BroadlinkUnitUs, e);
                      });
}
