// Bare lists of durations in µs, as ESPHome's remote_receiver dumps them and
// its raw transmitter takes them: [9008, -4504, 560, ...], signed, positive
// with the carrier on. Without a minus sign anywhere (9000,4500,560,...) the
// list alternates pulse and pause, starting with a pulse. Neither says the
// carrier.
#include "infrared/formats/FormatText.h"
#include "infrared/formats/IrFormats.h"

using namespace Qt::StringLiterals;
using namespace IrFormatText;

std::optional<NamedSignal> ReadRawList(QByteArrayView bytes, const QString& fileName,
                                       QString* error) {
    struct Item {
        QByteArrayView text;
        int line;
    };
    std::vector<Item> items;
    bool opened = false, closed = false, signedList = false;
    auto fail = [&](int line, const QString& what) {
        *error = At(fileName, line, what);
        return std::nullopt;
    };
    for (const Line& line : SplitLines(bytes)) {
        if (line.text.startsWith('#'))
            continue;
        QByteArrayView text = line.text;
        if (text.isEmpty())
            continue;
        if (closed)
            return fail(line.number, u"text after the closing ']'"_s);
        if (items.empty() && !opened && text.startsWith('[')) {
            opened = true;
            text = text.sliced(1);
        }
        if (opened && text.endsWith(']')) {
            closed = true;
            text.chop(1);
        }
        if (text.count(',') > MaxDurations)
            return fail(line.number, u"more than %1 durations"_s.arg(MaxDurations));
        for (QByteArrayView part : Fields(text, ',')) {
            if (part.isEmpty())
                continue;
            if (items.size() >= size_t(MaxDurations))
                return fail(line.number, u"more than %1 durations"_s.arg(MaxDurations));
            signedList = signedList || part.startsWith('-');
            items.push_back({part, line.number});
        }
    }
    if (opened && !closed)
        return fail(items.empty() ? 0 : items.back().line, u"the list has no closing ']'"_s);
    if (items.empty())
        return fail(0, u"no durations"_s);
    NamedSignal code;
    bool lastPulse = false;
    for (const Item& item : items) {
        QByteArrayView digits = item.text;
        const bool space = digits.startsWith('-');
        if (space || digits.startsWith('+'))
            digits = digits.sliced(1);
        const std::optional<uint64_t> us = Number(digits, MaxSignalUs);
        if (!us || *us == 0 || (space && !signedList))
            return fail(item.line, Quote(item.text) + u" is not a duration in µs"_s);
        const bool pulse = signedList ? !space : code.timing.durations.size() % 2 == 0;
        if (code.timing.durations.empty() && !pulse)
            return fail(item.line, u"the list starts with a pause"_s);
        // Two of a kind in a row are one.
        if (!code.timing.durations.empty() && pulse == lastPulse) {
            if (code.timing.durations.back() + *us > MaxSignalUs)
                return fail(item.line, u"longer than a key's signal may be"_s);
            code.timing.durations.back() += uint32_t(*us);
        } else
            code.timing.durations.push_back(uint32_t(*us));
        lastPulse = pulse;
    }
    const QString why = TimingProblem(code.timing);
    if (!why.isEmpty())
        return fail(items.front().line, why);
    return code;
}

QByteArray WriteRawList(const NamedSignal& code) {
    QByteArray out = "[";
    for (size_t i = 0; i < code.timing.durations.size(); ++i) {
        if (i > 0)
            out += ", ";
        out += (i % 2 ? "-" : "") + QByteArray::number(code.timing.durations[i]);
    }
    return out + "]\n";
}
