// ESPHome lists and comma-separated durations, read from any bytes; the
// content's own detection too.
// Seeds: the "Received Raw" dump of ESPHome's "Setting up RMT devices" guide
// (esphome.io/guides/setting_up_rmt_devices) and a plain list.
#include "FormatFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzSingle(data, size, IrFormat::RawList, ReadRawList);
}
