#pragma once

#include "infrared/Climate.h"

#include <QString>
#include <QStringView>

#include <optional>

// A reservation of an air conditioner's state is an ordinary line,
// "<unit name>|<state as people read it>" ("寝室|冷房 26℃ 自動"): the classic
// lists show it by that name, and every reader of the store keeps reading it.
namespace Reserve {

QString ClimateFunction(const ClimateState& state);
// The line that reserves a wanted state for a unit: fitted to the unit first
// (note says what was rounded); nothing, with why, when the unit cannot hold it.
struct ClimateLine {
    QString device, function, note;
};
std::optional<ClimateLine> ClimateLineFor(const QString& unitName, const ClimateCaps& caps,
                                          const ClimateState& wanted, QString* why);
// The state a line's function names for a unit of these caps ("停止" turns the
// believed state off); nothing when the text is none of the unit's states.
std::optional<ClimateState> ClimateStateOfFunction(const ClimateCaps& caps, QStringView function,
                                                   const ClimateState& believed);

} // namespace Reserve
