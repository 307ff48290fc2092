// Pronto hex, the learned form: 0000 FREQ N1 N2, then N1 burst pairs sent once
// and N2 that repeat, all in carrier periods. The carrier is
// 1 / (FREQ x 0.241246 µs).
#include "infrared/formats/FormatText.h"
#include "infrared/formats/IrFormats.h"

#include <cmath>

using namespace Qt::StringLiterals;
using namespace IrFormatText;

namespace {

constexpr double ProntoClockUs = 0.241246;

} // namespace

std::optional<NamedSignal> ReadPronto(QByteArrayView bytes, const QString& fileName,
                                      QString* error) {
    struct Word {
        uint32_t value;
        int line;
    };
    std::vector<Word> words;
    auto fail = [&](int line, const QString& what) {
        *error = At(fileName, line, what);
        return std::nullopt;
    };
    for (const Line& line : SplitLines(bytes)) {
        if (line.text.startsWith('#'))
            continue;
        for (QByteArrayView w : Words(line.text)) {
            std::optional<uint64_t> v = w.size() == 4 ? HexNumber(w, 0xFFFF) : std::nullopt;
            if (!v)
                return fail(line.number, Quote(w) + u" is not a 4-digit hex word"_s);
            if (words.size() > size_t(2 * MaxDurations + 4))
                return fail(line.number, u"more than %1 durations"_s.arg(MaxDurations));
            words.push_back({uint32_t(*v), line.number});
        }
    }
    if (words.size() < 4)
        return fail(words.empty() ? 0 : words.back().line, u"too short for a Pronto code"_s);
    if (words[0].value != 0)
        return fail(words[0].line,
                    u"only learned Pronto codes (0000) can be read; this one is %1"_s.arg(
                        words[0].value, 4, 16, QChar(u'0')));
    if (words[1].value == 0)
        return fail(words[1].line, u"frequency word of zero"_s);
    const size_t once = words[2].value, again = words[3].value;
    const size_t expected = 4 + 2 * (once + again);
    if (words.size() != expected)
        return fail(words.back().line,
                    u"the code announces %1 pairs (%2 words) but has %3 words"_s.arg(once + again)
                        .arg(expected)
                        .arg(words.size()));
    const double periodUs = words[1].value * ProntoClockUs;
    NamedSignal code;
    code.timing.carrierHz = int(std::lround(1e6 / periodUs));
    for (size_t i = 4; i < words.size(); ++i) {
        if (words[i].value == 0)
            return fail(words[i].line, u"a duration of zero"_s);
        code.timing.durations.push_back(uint32_t(std::lround(words[i].value * periodUs)));
    }
    if (again > 0)
        code.timing.repeatBegin = int(2 * once);
    const QString why = TimingProblem(code.timing);
    if (!why.isEmpty())
        return fail(words[1].line, why);
    return code;
}

QByteArray WritePronto(const NamedSignal& code, QString* error) {
    const IrTiming& t = code.timing;
    const int carrier = t.carrierHz > 0 ? t.carrierHz : DefaultCarrierHz;
    const int freq = int(std::lround(1e6 / (carrier * ProntoClockUs)));
    const double periodUs = freq * ProntoClockUs;
    // Pairs only: a part that ends on a pulse gets the pause after it, and the
    // repeating part starts on a pulse.
    std::vector<uint32_t> once, again;
    size_t split = t.durations.size();
    if (t.repeats())
        split = size_t(t.repeatBegin + t.repeatBegin % 2);
    once.assign(t.durations.begin(), t.durations.begin() + long(split));
    again.assign(t.durations.begin() + long(split), t.durations.end());
    if (once.size() % 2)
        once.push_back(t.gapUs());
    if (again.size() % 2)
        again.push_back(t.gapUs());
    QStringList words{u"0000"_s, u"%1"_s.arg(freq, 4, 16, QChar(u'0')),
                      u"%1"_s.arg(once.size() / 2, 4, 16, QChar(u'0')),
                      u"%1"_s.arg(again.size() / 2, 4, 16, QChar(u'0'))};
    for (const auto* part : {&once, &again})
        for (uint32_t us : *part) {
            const long n = std::max(1L, std::lround(us / periodUs));
            if (n > 0xFFFF) {
                *error = u"a duration of %1 µs is longer than Pronto can hold"_s.arg(us);
                return {};
            }
            words << u"%1"_s.arg(n, 4, 16, QChar(u'0'));
        }
    return words.join(u' ').toUpper().toLatin1() + '\n';
}
