// encode and climate: a signal file made from a code or from an air
// conditioner's state rather than captured.
#include "infrared/Climate.h"
#include "infrared/IrProtocol.h"
#include "infrared/IrSignal.h"
#include "infrared/SignalStore.h"
#include "tools/kestrava-ir/Tool.h"

using namespace Qt::StringLiterals;

namespace irtool {
namespace {

// The shared state checks speak the program's Japanese; the tool tells the
// same refusals in English.
QString wordProblem(const QString& word) {
    const qsizetype eq = word.indexOf(u'=');
    const QString name = word.left(eq).trimmed().toLower();
    if (eq <= 0)
        return u"'%1' is not NAME=VALUE"_s.arg(word);
    if (name == u"power" || name == u"swing")
        return u"%1 is on or off"_s.arg(name);
    if (name == u"mode")
        return u"mode is one of auto, cool, heat, dry, fan"_s;
    if (name == u"temp" || name == u"temperature")
        return u"temp '%1' is not a number (26, 24.5)"_s.arg(word.mid(eq + 1));
    if (name == u"fan")
        return u"fan is empty"_s;
    return u"unknown word '%1' (power, mode, temp, fan, swing)"_s.arg(name);
}

QString fitProblem(const ClimateCaps& caps, const ClimateState& wanted) {
    QStringList modes;
    for (ClimateMode m : caps.modes)
        modes << ClimateModeName(m);
    if (!caps.hasMode(wanted.mode))
        return u"%1 has no mode %2 (only %3)"_s.arg(caps.family, ClimateModeName(wanted.mode),
                                                    modes.join(u", "_s));
    if (!caps.fans.contains(wanted.fan))
        return u"%1's fan is one of %2"_s.arg(caps.family, caps.fans.join(u", "_s));
    if (wanted.swing && !caps.swing)
        return u"%1 has no swing"_s.arg(caps.family);
    return u"%1 takes temp %2 to %3"_s.arg(caps.family).arg(caps.minTemp).arg(caps.maxTemp);
}

} // namespace

int encode(const QString& spec, const QString& path) {
    QString why;
    const auto code = ParseCodeSpec(spec, &why);
    if (!code) {
        complain(spec + u": "_s + why);
        return 2;
    }
    const auto timing = EncodeSignal(*code);
    const auto blob = timing ? BlobFromTiming(*timing) : std::nullopt;
    if (!blob || blob->encode().size() > SignalFileSize - 2) {
        complain(spec + u": cannot be made into a signal file"_s);
        return 1;
    }
    QString error;
    if (!writeOut(path, signalImage(blob->encode()), &error)) {
        complain(error);
        return 1;
    }
    return 0;
}

int climateList() {
    for (const ClimateCaps& c : ClimateFamilies()) {
        QStringList modes;
        for (ClimateMode m : c.modes)
            modes << ClimateModeName(m);
        print(u"%1\t%2\t%3-%4 step %5\tfans %6\tmodes %7%8\n"_s.arg(c.family, c.title)
                  .arg(c.minTemp)
                  .arg(c.maxTemp)
                  .arg(c.step)
                  .arg(c.fans.join(u','), modes.join(u','), c.swing ? u"\tswing"_s : QString()));
    }
    return 0;
}

int climate(const QStringList& args) {
    if (args.size() < 2) {
        complain(u"wrong arguments for 'climate'"_s);
        return 2;
    }
    const QString family = args.first();
    const auto caps = ClimateFamily(family);
    if (!caps) {
        complain(u"unknown family '"_s + family + u"' (see: kestrava-ir climate --list)"_s);
        return 2;
    }
    QString why;
    ClimateState wanted;
    wanted.power = true;
    for (const QString& word : args.mid(1, args.size() - 2)) {
        const auto next = ClimateStateFromWords({word}, wanted, &why);
        if (!next) {
            complain(wordProblem(word));
            return 2;
        }
        wanted = *next;
    }
    const ClimateFit fit = FitClimateState(*caps, wanted);
    if (!fit.state) {
        complain(fitProblem(*caps, wanted));
        return 2;
    }
    if (fit.state->temperature != wanted.temperature)
        complain(u"temp %1 rounded to %2 (steps of %3)"_s.arg(wanted.temperature)
                     .arg(fit.state->temperature)
                     .arg(caps->step));
    else if (!fit.note.isEmpty())
        complain(u"mode %1 ignores the temperature"_s.arg(ClimateModeName(wanted.mode)));
    const auto timing = EncodeClimate(caps->family, *fit.state, &why);
    const auto blob = timing ? BlobFromTiming(*timing) : std::nullopt;
    if (!blob || blob->encode().size() > SignalFileSize - 2) {
        complain(timing ? u"the frame cannot be made into a signal file"_s : why);
        return 1;
    }
    QString error;
    if (!writeOut(args.last(), signalImage(blob->encode()), &error)) {
        complain(error);
        return 1;
    }
    return 0;
}

} // namespace irtool
