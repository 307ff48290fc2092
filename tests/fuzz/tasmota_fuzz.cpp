// Tasmota's codes (protocol JSON, IRsend raw lists, the compact raw form),
// read from any bytes; the content's own detection too.
// Seeds: the examples of Tasmota's IR pages (tasmota.github.io/docs/Tasmota-IR
// and IRSend-RAW-Encoding) and IRremoteESP8266's IRsendDemo codes.
#include "FormatFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return FuzzSingle(data, size, IrFormat::Tasmota, ReadTasmota);
}
