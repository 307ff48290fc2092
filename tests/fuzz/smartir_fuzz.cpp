// SmartIR device files, read from any bytes; the content's own detection too.
// Seeds: SmartIR's media_player/1000.json (Broadlink base64, lists of codes)
// and media_player/9999.json (Pronto), smartHomeHub/SmartIR at e4df295, MIT;
// and a small file of each Raw encoding; climate/1100.json (Daikin, Base64)
// and a small climate table with a swing layer.
#include "FormatFuzz.h"
#include "climate/ClimateUnits.h"

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes = FuzzBytes(data, size);
    const IrCodeRead direct = ReadSmartIr(bytes, u"f"_s);
    if (!direct.error.isEmpty() && !direct.codes.empty())
        abort();
    for (const NamedSignal& s : direct.codes)
        if (!TimingProblem(s.timing).isEmpty())
            abort();
    // An air conditioner's table: whatever it holds is a range that fits.
    if (const auto caps = SmartIrClimateCaps(bytes.toByteArray()))
        if (caps->modes.empty() || caps->fans.isEmpty() || !(caps->minTemp <= caps->maxTemp))
            abort();
    CheckDetected(bytes);
    return 0;
}
