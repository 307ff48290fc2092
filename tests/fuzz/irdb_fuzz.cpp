// irdb's CSV rows, read from any bytes; the content's own detection too.
// Seeds: rows of probonopd/irdb (codes/Sony/TV/1,-1.csv and one row of
// several protocols, as in tests/data/irdb), and a quoted name.
#include "FormatFuzz.h"

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes = FuzzBytes(data, size);
    CheckCodes(ReadIrdbCsv(bytes, u"f.csv"_s), IrFormat::IrdbCsv);
    CheckDetected(bytes);
    return 0;
}
