#pragma once

// What each reader of code files must hold to, whatever the bytes: what it
// reads is a signal fit to keep, an error leaves no codes behind, and what it
// read writes back in its own format and reads again without harm.
#include "infrared/formats/IrFormats.h"

#include <cstdlib>
#include <cstring>

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

// What the content's own detection finds, written back as that format (SmartIR's
// as Flipper's, which holds any signal).
inline void CheckDetected(QByteArrayView bytes) {
    const IrCodeRead read = ReadIrCodes(bytes, QStringLiteral("f"));
    if (read.format)
        CheckCodes(read, *read.format == IrFormat::SmartIr ? IrFormat::Flipper : *read.format);
}

// A reader of one signal, called as read(bytes, fileName, &error), then detection.
template <typename Reader>
int FuzzSingle(const uint8_t* data, size_t size, IrFormat format, Reader read) {
    const QByteArrayView bytes = FuzzBytes(data, size);
    QString error;
    const std::optional<NamedSignal> code = read(bytes, QStringLiteral("f"), &error);
    CheckSingle(code, error, format);
    CheckDetected(bytes);
    return 0;
}

// Carrier (32 bits), then durations of 16 bits, both little-endian; the
// carrier's top byte scales the durations so that long pauses occur too.
inline IrTiming FuzzTiming(const uint8_t* data, size_t size) {
    IrTiming timing;
    if (size >= 4) {
        uint32_t carrier = 0;
        memcpy(&carrier, data, 4);
        timing.carrierHz = int(carrier & 0xFFFFFF);
        const uint32_t scale = 1 + (carrier >> 24) % 4;
        for (size_t i = 4; i + 1 < size; i += 2)
            timing.durations.push_back(uint32_t(data[i] | data[i + 1] << 8) * scale);
    }
    return timing;
}
