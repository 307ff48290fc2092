#pragma once

#include "api/ApiRequest.h"
#include "reservations/ClimateReserve.h"
#include "webserver/WebServer.h"

#include <QJsonObject>
#include <QString>

#include <functional>
#include <optional>

class Clock;
class ProgramFolder;
class Scheduler;
class SettingsStore;

// What reservations of other things than keys need from their owners.
struct ReserveLinks {
    // An air conditioner's state: the line for a unit's wanted state
    // (nothing, with the status and why: 404, 400 or 422), and the unit a
    // line names ("" when none).
    std::function<std::optional<Reserve::ClimateLine>(const QString& unit, const QJsonObject& state,
                                                      int* status, QString* why)>
        climateLine;
    std::function<QString(const QString& device, const QString& function)> climateOf;
    // A scene: the name of scene id ("" when none), and the scene a line
    // names (0 when none).
    std::function<QString(int id)> sceneName;
    std::function<int(const QString& device, const QString& function)> sceneOf;
};

// /api/v1/reservations: the reservation files as a list of moments, added,
// moved and removed the way the classic pages do.
class ReserveApi {
public:
    ReserveApi(const ProgramFolder& folder, SettingsStore& settings, const Clock& clock,
               Scheduler& scheduler, const ReserveLinks& links);

    void List(const FrontReply& r);
    void Add(const Api::Call& c, const FrontReply& r);
    void Move(const Api::Call& c, const FrontReply& r);
    void Delete(const Api::Call& c, const FrontReply& r);

private:
    const ProgramFolder& folder_;
    SettingsStore& settings_;
    const Clock& clock_;
    Scheduler& scheduler_;
    const ReserveLinks& links_;
};
