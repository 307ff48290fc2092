#pragma once

#include "infrared/Climate.h"
#include "infrared/IrSignal.h"

#include <QByteArrayView>
#include <QString>
#include <QStringView>

#include <optional>

// What a message on one of our command topics asks for. Everything here is
// outside bytes: the parsers refuse with why rather than guess.
namespace MqttCommand {

// The longest payload taken; discovery-sized JSON is far below it.
constexpr qsizetype MaxPayload = 64 * 1024;

// <Topic>/press: {"remote": NAME, "key": NAME}.
struct Press {
    QString remote, key;
};
std::optional<Press> ParsePress(QByteArrayView payload, QString* why);

// A button's command topic <Topic>/key/<slot>/<button>/press ("PRESS"). A
// topic under key/ that names no possible key is refused with why; any other
// topic is not a key's (why stays empty).
struct KeyRef {
    int slot = 0;
    int button = -1;
};
std::optional<KeyRef> ParseKeyTopic(QStringView relative, QString* why);

// The emitter's command: {"timings": [signed µs], "modulation": HZ, "repeat_count": n}.
// Home Assistant's timings already hold the n repeats; without repeat_count
// (as ESPHome-style senders write it) it is 0.
struct Emit {
    IrTiming timing;
    int repeats = 0; // how many the timings hold, as the sender says
};
std::optional<Emit> ParseEmit(QByteArrayView payload, QString* why);

// An air conditioner's command topic climate/<unit>/<field>/set, field one of
// mode, temperature, fan, swing, power. Refused with why under climate/; any
// other topic is not a unit's (why stays empty).
struct ClimateRef {
    QString unit;
    QString field;
};
std::optional<ClimateRef> ParseClimateTopic(QStringView relative, QString* why);
// The state a unit is asked for: its field's payload as Home Assistant's
// climate platform sends it ("off" or a mode, a number, a fan name, on/off,
// ON/OFF) taken onto the state it is believed in.
std::optional<ClimateState> ApplyClimateCommand(const QString& field, QByteArrayView payload,
                                                ClimateState base, QString* why);

// A scene's command topic scene/<id>/run, id 1 to 100. Refused with why
// under scene/; any other topic is not a scene's (why stays empty).
std::optional<int> ParseSceneTopic(QStringView relative, QString* why);

} // namespace MqttCommand
