#pragma once

#include "api/ApiRequest.h"
#include "infrared/IrProtocol.h"
#include "infrared/SignalCodeCache.h"
#include "infrared/SignalStore.h"
#include "infrared/Transmission.h"
#include "reservations/ClimateReserve.h"
#include "webserver/WebServer.h"

#include <QJsonObject>
#include <QObject>
#include <QTimer>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

class Clock;
class ProgramFolder;
class Scheduler;
class SettingsStore;
class Transceiver;

// The JSON API under /api/v1/: the same registry, press queue, learning code
// and reservation store as the pages and the desktop, in UTF-8 JSON. Reading
// is GET; everything that acts is POST, PUT, PATCH or DELETE.
class JsonApi : public QObject {
    Q_OBJECT
public:
    struct Parts {
        const ProgramFolder& folder;
        SettingsStore& settings;
        const Clock& clock;
        Transceiver& device;
        Scheduler& scheduler;
        WebServer& server;
        std::function<QString()> globalAddress; // may be empty
    };
    explicit JsonApi(Parts parts, QObject* parent = nullptr);

    // The route the server serves /api/ with; a path beneath it that takes
    // larger bodies gets a route of its own.
    FrontRoute Route(const QString& prefix = QStringLiteral("/api/"),
                     qsizetype maxBody = 64 * 1024);
    void Handle(const FrontRequest& request, const FrontReply& reply);

    // Reservations of an air conditioner's state: the line for a unit's
    // wanted state (nothing, with the status and why: 404, 400 or 422), and
    // the unit a line names ("" when none).
    std::function<std::optional<Reserve::ClimateLine>(const QString& unit, const QJsonObject& state,
                                                      int* status, QString* why)>
        climateLine;
    std::function<QString(const QString& device, const QString& function)> climateOf;

    // Reservations of a scene: the name of scene id ("" when none), and the
    // scene a line names (0 when none).
    std::function<QString(int id)> sceneName;
    std::function<int(const QString& device, const QString& function)> sceneOf;
    // The program's cache of what signal files decode as, instead of one of its own.
    void UseCodes(SignalCodeCache& codes) { codes_ = &codes; }

    // Event streams open now.
    int Listeners() const { return int(listeners_.size()); }

    // Tells every event stream (name: press, learned, reservation, device).
    void Publish(const QByteArray& name, const QJsonObject& data);

    // The status's "mqtt" object (server, connected, nodeId, topic,
    // listening); null without it.
    std::function<QJsonObject()> mqttStatus;
    // The status's "https" object (port, names, expires, source, problem);
    // null without it.
    std::function<QJsonObject()> httpsStatus;

    // The calls under /api/v1/climates; 404 without it.
    std::function<void(const Api::Call&, const FrontReply&)> climates;
    // The calls under /api/v1/scenes; 404 without it.
    std::function<void(const Api::Call&, const FrontReply&)> scenes;
    // A key held down (…/keys/{key}/hold); 404 without it.
    std::function<void(const Api::Call&, const FrontReply&)> holds;

    // Longest repeat of one press.
    static constexpr int MaxRepeat = 20;

private:
    struct Reply;
    // How a refusal of FindKey is answered.
    static std::function<void(int, const QString&)> keyFailure(const Reply& r);
    void dispatch(const Api::Call& call, const FrontRequest& request, const Reply& reply);
    void status(const Reply& r);
    // query "keys=none": the remotes without their keys.
    void remotes(const Reply& r, const QString& query);
    void remote(const Api::Call& c, const Reply& r);
    void createRemote(const Api::Call& c, const Reply& r);
    void renameRemote(const Api::Call& c, const Reply& r);
    void deleteRemote(const Api::Call& c, const Reply& r);
    void key(const Api::Call& c, const Reply& r);
    void renameKey(const Api::Call& c, const Reply& r);
    void deleteKey(const Api::Call& c, const Reply& r);
    void press(int remote, int key, int repeat, const Reply& r);
    void pressByName(const Api::Call& c, const Reply& r);
    void transmit(const Api::Call& c, const Reply& r);
    void learn(const Api::Call& c, const Reply& r);
    void cancelLearn(const Api::Call& c, const Reply& r);
    void importCode(const Api::Call& c, const Reply& r);
    void reservations(const Reply& r);
    void addReservation(const Api::Call& c, const Reply& r);
    void moveReservation(const Api::Call& c, const Reply& r);
    void deleteReservation(const Api::Call& c, const Reply& r);
    void events(const FrontReply& reply);

    // Stores one signal image on a key the way the editor does; false with
    // why when it could not be written.
    bool storeKey(int remote, int key, const QString& name, const SignalImage& image, QString* why);
    QJsonObject remoteJson(int id);
    QJsonObject remoteSummary(int id);
    QJsonObject keyJson(const QString& device, int key, const QString& function);
    void changed() { ++generation_; }

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    const Clock& clock_;
    Transceiver& device_;
    Scheduler& scheduler_;
    WebServer& server_;
    std::function<QString()> globalAddress_;

    SignalCodeCache ownCodes_;
    SignalCodeCache* codes_ = &ownCodes_;
    // The list of remotes, made again when the registry or a signal changed.
    QByteArray remotesBody_;
    QByteArray summaryBody_; // without keys
    QByteArray remotesStamp_;
    quint64 generation_ = 0;
    bool capturing_ = false;
    std::pair<int, int> learning_; // remote and key whose capture runs
    bool learnCancelled_ = false;
    std::vector<FrontReply> listeners_;
    QTimer ping_; // keeps streams alive through proxies, and finds closed ones
};
