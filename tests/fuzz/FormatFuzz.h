#pragma once

// What each reader of code files must hold to, whatever the bytes: what it
// reads is a signal fit to keep, an error leaves no codes behind, and what it
// read writes back in its own format and reads again without harm.
#include "infrared/formats/IrFormats.h"

#include <cstdlib>

inline void CheckCodes(const IrCodeRead& read, IrFormat format) {
    if (!read.error.isEmpty() && !read.codes.empty())
        abort();
    for (const NamedSignal& s : read.codes)
        if (!TimingProblem(s.timing).isEmpty())
            abort();
    if (read.codes.empty())
        return;
    QString error;
    std::vector<NamedSignal> codes = read.codes;
    if (IrFormatIsSingle(format))
        codes.resize(1);
    const QByteArray out = WriteIrCodes(format, codes, &error);
    if (!out.isEmpty())
        ReadIrCodes(out, QStringLiteral("again"));
}

inline void CheckSingle(const std::optional<NamedSignal>& code, const QString& error,
                        IrFormat format) {
    IrCodeRead read;
    read.error = error;
    if (code)
        read.codes.push_back(*code);
    if (code.has_value() == !error.isEmpty())
        abort();
    CheckCodes(read, format);
}

inline QByteArrayView FuzzBytes(const uint8_t* data, size_t size) {
    return QByteArrayView(reinterpret_cast<const char*>(data), qsizetype(size));
}
