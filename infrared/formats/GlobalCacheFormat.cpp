// Global Caché's sendir command: sendir,MODULE:PORT,ID,FREQ,REPEAT,OFFSET,ON1,
// OFF1,... with every duration in carrier periods. The device sends the whole
// list, then REPEAT-1 times again from the OFFSET-th duration (1-based, odd:
// a pulse), so OFFSET 1 repeats everything and a larger one marks where the
// repeating part starts.
#include "infrared/formats/FormatText.h"
#include "infrared/formats/IrFormats.h"

#include <cmath>

using namespace Qt::StringLiterals;
using namespace IrFormatText;

namespace {

// The device's own limits.
constexpr uint64_t MinGlobalCacheHz = 15000;
constexpr uint64_t MaxGlobalCacheHz = 500000;
constexpr uint64_t MaxPeriods = 65635;
constexpr uint64_t MaxRepeat = 50;

} // namespace

std::optional<NamedSignal> ReadGlobalCache(QByteArrayView bytes, const QString& fileName,
                                           QString* error) {
    std::optional<Line> command;
    for (const Line& line : SplitLines(bytes)) {
        if (line.text.isEmpty() || line.text.startsWith('#'))
            continue;
        if (command) {
            *error = At(fileName, line.number, u"one sendir command per file"_s);
            return std::nullopt;
        }
        command = line;
    }
    if (!command) {
        *error = At(fileName, 0, u"no sendir command"_s);
        return std::nullopt;
    }
    auto fail = [&](const QString& what) {
        *error = At(fileName, command->number, what);
        return std::nullopt;
    };
    if (command->text.count(',') > MaxDurations + 5)
        return fail(u"more than %1 durations"_s.arg(MaxDurations));
    const std::vector<QByteArrayView> f = Fields(command->text, ',');
    if (f.size() < 8 || f[0].compare("sendir", Qt::CaseInsensitive) != 0)
        return fail(u"not a sendir command with at least one pulse and pause"_s);
    if (!f[1].contains(':') || !Number(f[2], 65535))
        return fail(u"the module:port and id fields are not there"_s);
    const std::optional<uint64_t> freq = Number(f[3], MaxGlobalCacheHz);
    if (!freq || *freq < MinGlobalCacheHz)
        return fail(Quote(f[3]) + u" is not a carrier in Hz (15000 to 500000)"_s);
    const std::optional<uint64_t> repeat = Number(f[4], MaxRepeat);
    if (!repeat || *repeat == 0)
        return fail(Quote(f[4]) + u" is not a repeat count (1 to 50)"_s);
    const size_t count = f.size() - 6;
    if (count % 2)
        return fail(u"%1 durations; sendir takes pulse and pause pairs"_s.arg(count));
    const std::optional<uint64_t> offset = Number(f[5], count);
    if (!offset || *offset % 2 == 0)
        return fail(Quote(f[5]) + u" is not an offset to a pulse of the list"_s);
    NamedSignal code;
    code.timing.carrierHz = int(*freq);
    for (size_t i = 6; i < f.size(); ++i) {
        const std::optional<uint64_t> n = Number(f[i], MaxPeriods);
        if (!n || *n == 0)
            return fail(Quote(f[i]) +
                        (f[i].size() == 1 && f[i][0] >= 'A' && f[i][0] <= 'Z'
                             ? u" stands for a pair of the compressed form, which is not read"_s
                             : u" is not a duration in carrier periods"_s));
        code.timing.durations.push_back(uint32_t(std::lround(double(*n) * 1e6 / double(*freq))));
    }
    if (*offset > 1)
        code.timing.repeatBegin = int(*offset - 1);
    const QString why = TimingProblem(code.timing);
    if (!why.isEmpty())
        return fail(why);
    return code;
}

QByteArray WriteGlobalCache(const NamedSignal& code, QString* error) {
    const IrTiming& t = code.timing;
    const int freq = t.carrierHz > 0 ? t.carrierHz : DefaultCarrierHz;
    if (uint64_t(freq) < MinGlobalCacheHz) {
        *error = u"a carrier of %1 Hz, below what Global Caché sends"_s.arg(freq);
        return {};
    }
    std::vector<uint32_t> d = t.durations;
    int offset = 1;
    if (t.repeatBegin > 0)
        offset = t.repeatBegin + t.repeatBegin % 2 + 1;
    if (d.size() % 2)
        d.push_back(t.gapUs());
    if (offset > int(d.size()))
        offset = 1;
    QByteArray out =
        "sendir,1:1,1," + QByteArray::number(freq) + ",1," + QByteArray::number(offset);
    for (uint32_t us : d) {
        const long n = std::max(1L, std::lround(double(us) * freq / 1e6));
        if (uint64_t(n) > MaxPeriods) {
            *error = u"a duration of %1 µs is longer than sendir can hold"_s.arg(us);
            return {};
        }
        out += ',' + QByteArray::number(qlonglong(n));
    }
    return out + '\n';
}
