#pragma once

#include "infrared/IrSignal.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <cstdint>
#include <optional>
#include <vector>

// Air conditioners: their remotes send the whole state in every frame, so a
// unit is driven by state, not by keys. One state model serves every family.

enum class ClimateMode : uint8_t { Auto, Cool, Heat, Dry, Fan };

// "auto", "cool", "heat", "dry", "fan".
QString ClimateModeName(ClimateMode mode);
std::optional<ClimateMode> ClimateModeFromName(QStringView name); // also "fan_only", "heat_cool"

struct ClimateState {
    bool power = false;
    ClimateMode mode = ClimateMode::Cool;
    double temperature = 26;              // °C
    QString fan = QStringLiteral("auto"); // one of the unit's fan names
    bool swing = false;                   // vertical swing
    bool operator==(const ClimateState&) const = default;
};

// What a family (or an imported table) can hold.
struct ClimateCaps {
    QString family; // "daikin", "mitsubishi"...; empty for a table
    QString title;  // "Daikin ARC4xx (280-bit)"
    std::vector<ClimateMode> modes;
    double minTemp = 16, maxTemp = 30, step = 1;
    QStringList fans; // "auto", "quiet", "1".."5", or the family's or table's own names
    bool swing = false;
    // Modes in which the unit ignores the temperature (dry, fan on many).
    std::vector<ClimateMode> noTemperature;
    int carrierHz = 38000;

    bool hasMode(ClimateMode m) const;
    bool usesTemperature(ClimateMode m) const;
};

// A wanted state made fit for a unit: the temperature rounded to its step
// (note says so), a mode or fan it lacks or a temperature beyond its range
// refused (why says so). A temperature the mode ignores is kept as it was.
struct ClimateFit {
    std::optional<ClimateState> state; // nothing: refused
    QString note;                      // what was rounded, "" when nothing
    QString why;                       // why it was refused
};
ClimateFit FitClimateState(const ClimateCaps& caps, const ClimateState& wanted);

// What a heard frame told: a frame may carry part of the state only (some
// units send "off" as a frame of its own).
struct ClimateHeard {
    enum Field : uint8_t { Power = 1, Mode = 2, Temperature = 4, Fan = 8, Swing = 16, All = 31 };
    QString family;
    ClimateState state;
    uint8_t known = All;
    // The fields known taken over onto a state believed before.
    ClimateState onto(ClimateState before) const;
};

// The families, in the order decoding tries them.
std::vector<ClimateCaps> ClimateFamilies();
std::optional<ClimateCaps> ClimateFamily(QStringView family); // case-insensitive

// The family's whole frame for a state; nothing, with why, when the family is
// unknown or the state does not fit it (FitClimateState first to round).
std::optional<IrTiming> EncodeClimate(QStringView family, const ClimateState& state,
                                      QString* why = nullptr);
// The family and state of a frame, when one family reads it whole with its
// checks right.
std::optional<ClimateHeard> DecodeClimate(const IrTiming& timing);

// {"family","power","mode","temperature","fan","swing"}, for what is known.
QJsonObject ClimateJson(const ClimateHeard& heard);
QJsonObject ClimateStateJson(const ClimateState& state);
// Changes a state by "power=on mode=cool temp=26 fan=auto swing=on" words (or
// by a JSON object of the same names); nothing, with why, on a word it does
// not know. What fits the unit is FitClimateState's business.
std::optional<ClimateState> ClimateStateFromWords(const QStringList& words, ClimateState base,
                                                  QString* why = nullptr);
std::optional<ClimateState> ClimateStateFromJson(const QJsonObject& json, ClimateState base,
                                                 QString* why = nullptr);
// "冷房 26℃ 自動", as people read a state ("停止" when off).
QString ClimateStateText(const ClimateState& state);
