// ir-ctl's and mode2's text: "+9000 -4500 ..." or "pulse 9000" / "space 4500"
// lines, "carrier 38000", in µs. A "# repeat" line marks where the part that
// a held key repeats begins.
#include "infrared/formats/FormatText.h"
#include "infrared/formats/IrFormats.h"

using namespace Qt::StringLiterals;
using namespace IrFormatText;

std::optional<NamedSignal> ReadIrCtlText(QByteArrayView bytes, const QString& fileName,
                                         QString* error) {
    NamedSignal code;
    auto& d = code.timing.durations;
    int lastLine = 0;
    auto fail = [&](int line, const QString& what) {
        *error = At(fileName, line, what);
        return std::nullopt;
    };
    // Adds a pulse or a space; like ir-ctl, two of a kind in a row are one.
    auto add = [&](bool pulse, uint64_t us) {
        if (d.empty() && !pulse)
            return; // the silence before a capture
        if (!d.empty() && (d.size() % 2 == 1) == pulse)
            d.back() = uint32_t(std::min<uint64_t>(uint64_t(d.back()) + us, MaxSignalUs + 1));
        else
            d.push_back(uint32_t(us));
    };
    for (const Line& line : SplitLines(bytes)) {
        lastLine = line.number;
        if (line.text.startsWith('#')) {
            if (Words(line.text.sliced(1)) == std::vector<QByteArrayView>{"repeat"})
                code.timing.repeatBegin = int(d.size());
            continue;
        }
        const std::vector<QByteArrayView> words = Words(line.text);
        for (size_t i = 0; i < words.size(); ++i) {
            QByteArrayView w = words[i];
            if (w == "carrier" || w == "duty_cycle" || w == "pulse" || w == "space" ||
                w == "timeout") {
                if (i + 1 >= words.size())
                    return fail(line.number, Quote(w) + u" without a number"_s);
                std::optional<uint64_t> v = Number(words[++i], 100000000);
                if (!v)
                    return fail(line.number, Quote(words[i]) + u" is not a number"_s);
                if (w == "carrier")
                    code.timing.carrierHz = int(*v);
                else if (w == "pulse" || w == "space" || w == "timeout")
                    add(w == "pulse", *v);
                if (*v == 0 && w != "duty_cycle" && w != "carrier")
                    return fail(line.number, u"a duration of zero"_s);
            } else {
                const bool sign = w.startsWith('+') || w.startsWith('-');
                std::optional<uint64_t> v = Number(sign ? w.sliced(1) : w, MaxSignalUs);
                if (!v)
                    return fail(line.number, Quote(w) + u" is not a duration in µs"_s);
                if (*v == 0)
                    return fail(line.number, u"a duration of zero"_s);
                // Unsigned numbers alternate, starting with a pulse.
                add(sign ? w.startsWith('+') : d.size() % 2 == 0, *v);
            }
            if (d.size() > size_t(MaxDurations))
                return fail(line.number, u"more than %1 durations"_s.arg(MaxDurations));
        }
    }
    if (code.timing.repeatBegin >= int(d.size()))
        code.timing.repeatBegin = -1;
    const QString why = TimingProblem(code.timing);
    if (!why.isEmpty())
        return fail(d.empty() ? 0 : lastLine, why);
    return code;
}

QByteArray WriteIrCtlText(const NamedSignal& code) {
    const IrTiming& t = code.timing;
    QString text;
    if (!code.name.isEmpty())
        text += u"# "_s + QString(code.name).replace(u'\n', u' ') + u'\n';
    if (t.carrierHz > 0)
        text += u"carrier "_s + QString::number(t.carrierHz) + u'\n';
    // The sign is the kind (pulse or space) whichever part a line holds.
    auto part = [&](size_t from, size_t to) {
        QStringList words;
        for (size_t i = from; i < to; ++i)
            words << (i % 2 == 0 ? u"+"_s : u"-"_s) + QString::number(t.durations[i]);
        return words.join(u' ') + u'\n';
    };
    if (t.repeats()) {
        if (t.repeatBegin > 0)
            text += part(0, size_t(t.repeatBegin));
        text += u"# repeat\n"_s + part(size_t(t.repeatBegin), t.durations.size());
    } else {
        text += part(0, t.durations.size());
    }
    return text.toUtf8();
}
