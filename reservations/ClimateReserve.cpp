#include "reservations/ClimateReserve.h"

using namespace Qt::StringLiterals;

namespace Reserve {

QString ClimateFunction(const ClimateState& state) {
    return ClimateStateText(state);
}

std::optional<ClimateLine> ClimateLineFor(const QString& unitName, const ClimateCaps& caps,
                                          const ClimateState& wanted, QString* why) {
    const ClimateFit fit = FitClimateState(caps, wanted);
    if (!fit.state) {
        *why = fit.why;
        return std::nullopt;
    }
    return ClimateLine{unitName, ClimateFunction(*fit.state), fit.note};
}

std::optional<ClimateState> ClimateStateOfFunction(const ClimateCaps& caps, QStringView function,
                                                   const ClimateState& believed) {
    ClimateState off = believed;
    off.power = false;
    if (function == ClimateStateText(off))
        return off;
    // "<mode> <t>℃ <fan>[ スイング]": the temperature read, the rest matched
    // against what the unit can hold, so a fan's own name may have blanks.
    const auto words = function.split(u' ');
    if (words.size() < 3 || !words[1].endsWith(u'℃'))
        return std::nullopt;
    bool ok = false;
    const double t = words[1].chopped(1).toDouble(&ok);
    if (!ok)
        return std::nullopt;
    for (ClimateMode mode : caps.modes)
        for (const QString& fan : caps.fans)
            for (bool swing : {false, true}) {
                const ClimateState s{true, mode, t, fan, swing};
                if (ClimateStateText(s) == function)
                    return s;
            }
    return std::nullopt;
}

} // namespace Reserve
