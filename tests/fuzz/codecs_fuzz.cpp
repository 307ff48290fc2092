// The text conversions every request and file goes through: CP932 both ways,
// percent decoding, query runs and Base64.
#include "core/ShiftJis.h"
#include "webserver/Codecs.h"

#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    // As a request arrives (CP932) and as text typed in a window (any UTF-16).
    QString typed(qsizetype(size / 2), Qt::Uninitialized);
    memcpy(typed.data(), data, size / 2 * 2);
    for (const QString& text : {ShiftJis::Decode(bytes), typed}) {
        QByteArray decoded;
        URLDecodeBytes(text, decoded);
        if (decoded.size() > text.size())
            abort();
        DecodeValue(text);
        DecodeQuery(text);
        DecBase64(text);
        const QByteArray encoded = ShiftJis::Encode(text);
        // At most two bytes a character, one "?" for what CP932 lacks.
        if (encoded.size() > 2 * text.size())
            abort();
        ShiftJis::Decode(encoded);
    }
    return 0;
}
