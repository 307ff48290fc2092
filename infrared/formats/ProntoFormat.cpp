// Pronto hex, the learned form: 0000 FREQ N1 N2, then N1 burst pairs sent once
// and N2 that repeat, all in carrier periods. The carrier is
// 1 / (FREQ x 0.241246 µs).
// The short forms name a protocol's code instead, FREQ 0000 meaning the
// protocol's own carrier: 5000 FREQ 0000 0001 SYSTEM COMMAND (RC5),
// 5001 FREQ 0000 0002 SYSTEM COMMAND DATA 0000 (RC5x), 6000 FREQ 0000 0001
// SYSTEM COMMAND (RC6 mode 0) and 900A FREQ 0000 0001 DEVICE FUNCTION (NEC,
// each word a byte and the byte sent after it, usually its complement). The
// whole frame repeats while a key is held, as the Pronto sends them.
#include "infrared/formats/FormatText.h"
#include "infrared/formats/IrFormats.h"

#include <cmath>

using namespace Qt::StringLiterals;
using namespace IrFormatText;

namespace {

constexpr double ProntoClockUs = 0.241246;

QString hex4(uint32_t v) {
    return u"%1"_s.arg(v, 4, 16, QChar(u'0')).toUpper();
}

// The code a short form names, or why not.
std::optional<IrCode> shortFormCode(const std::vector<uint32_t>& w, QString* why) {
    IrCode code;
    const auto need = [&](size_t pairs) {
        if (w[2] != 0 || w[3] != pairs || w.size() != 4 + 2 * pairs) {
            *why = u"a %1 code is %2 words: %1 FREQ 0000 %3 and %4 more"_s.arg(hex4(w[0]))
                       .arg(4 + 2 * pairs)
                       .arg(hex4(uint32_t(pairs)))
                       .arg(2 * pairs);
            return false;
        }
        return true;
    };
    switch (w[0]) {
    case 0x5000:
        if (!need(1))
            return std::nullopt;
        code.protocol = IrProtocol::Rc5;
        code.scancode = w[4] << 8 | w[5];
        if (w[4] > 0x1F || w[5] > 0x7F) {
            *why = u"RC5 has systems 0 to 31 and commands 0 to 127"_s;
            return std::nullopt;
        }
        break;
    case 0x5001:
        if (!need(2))
            return std::nullopt;
        code.protocol = IrProtocol::Rc5x20;
        code.scancode = w[4] << 16 | w[5] << 8 | w[6];
        if (w[4] > 0x1F || w[5] > 0x7F || w[6] > 0x3F) {
            *why = u"RC5x has systems 0 to 31, commands 0 to 127 and data 0 to 63"_s;
            return std::nullopt;
        }
        break;
    case 0x6000:
        if (!need(1))
            return std::nullopt;
        code.protocol = IrProtocol::Rc6_0;
        code.scancode = w[4] << 8 | w[5];
        if (w[4] > 0xFF || w[5] > 0xFF) {
            *why = u"RC6 has systems and commands 0 to 255"_s;
            return std::nullopt;
        }
        break;
    case 0x900A: {
        if (!need(1))
            return std::nullopt;
        const uint32_t a = w[4] >> 8, a2 = w[4] & 0xFF, c = w[5] >> 8, c2 = w[5] & 0xFF;
        code.repeats = true;
        if (c2 != (~c & 0xFF)) {
            code.protocol = IrProtocol::Nec32;
            code.scancode = a2 << 24 | a << 16 | c2 << 8 | c;
        } else if (a2 != (~a & 0xFF)) {
            code.protocol = IrProtocol::Necx;
            code.scancode = a << 16 | a2 << 8 | c;
        } else {
            code.protocol = IrProtocol::Nec;
            code.scancode = a << 8 | c;
        }
        break;
    }
    default:
        *why = u"%1 is no Pronto code this program knows (0000, 5000, 5001, 6000, 900A)"_s.arg(
            hex4(w[0]));
        return std::nullopt;
    }
    return code;
}

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
    if (words[0].value != 0) {
        std::vector<uint32_t> values;
        for (const Word& w : words)
            values.push_back(w.value);
        QString why;
        NamedSignal code;
        const std::optional<IrCode> named = shortFormCode(values, &why);
        std::optional<IrTiming> timing = named ? EncodeSignal(*named) : std::nullopt;
        if (!timing)
            return fail(words[0].line,
                        why.isEmpty() ? u"a code its protocol has no room for"_s : why);
        if (words[1].value != 0)
            timing->carrierHz = int(std::lround(1e6 / (words[1].value * ProntoClockUs)));
        if (!named->repeats)
            timing->repeatBegin = 0;
        code.timing = std::move(*timing);
        code.code = *named;
        const QString problem = TimingProblem(code.timing);
        if (!problem.isEmpty())
            return fail(words[1].line, problem);
        return code;
    }
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
