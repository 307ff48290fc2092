#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

// What a request to /api/v1/ asks for, read from its method, path and body
// alone, so that it can be fuzzed: the endpoint and its ids, the JSON body, or
// why the request is refused before anything is looked up.

namespace Api {

enum class Endpoint {
    Status,
    Remotes,       // GET list, POST create
    Remote,        // GET, PATCH rename, DELETE
    Key,           // GET, PATCH rename, DELETE
    KeyPress,      // POST
    KeyHold,       // POST {"action": "start" | "stop"}
    KeyLearn,      // POST
    KeyCode,       // PUT
    PressByName,   // POST
    Transmit,      // POST
    Reservations,  // GET list, POST add
    Reservation,   // PATCH move, DELETE
    Events,        // GET
    OpenApi,       // GET
    Climates,      // GET list, POST create
    Climate,       // GET, DELETE
    ClimateState,  // GET, PUT
    ClimateLearn,  // POST
    ClimateImport, // POST
    Scenes,        // GET list, POST create
    Scene,         // GET, PUT, DELETE
    SceneRun,      // POST
};

struct Call {
    Endpoint endpoint = Endpoint::Status;
    QByteArray method;
    int remote = 0; // from the path; 0 when none
    int key = -1;   // from the path; -1 when none
    QString reservation;
    QString climate;  // an air conditioner's id from the path
    int scene = 0;    // a scene's id from the path; 0 when none
    QJsonObject body; // empty when none was sent
    QString query;    // the path's query, without '?'
};

// A refusal before anything is looked up.
struct Refusal {
    int status = 0; // 0: none
    QByteArray code;
    QString message;
    QByteArray allow; // for 405
};

// Ids in a path: a remote is 1 to this, a key 0 to this (a design has fewer).
constexpr int MaxRemoteIdInPath = 1000;
constexpr int MaxKeyIdInPath = 999;
constexpr int MaxSceneIdInPath = 100;

// path is under /api/v1/ (without the query). Either call or refusal is set.
Refusal ParseCall(const QByteArray& method, const QString& path, const QByteArray& body,
                  Call* call);

// An action (any method but GET and HEAD) takes a JSON body or none: a body
// that is not application/json (parameters allowed), or a Content-Type that
// is not, is refused with 415 before anything else is read. A body-less
// action without Content-Type passes.
Refusal CheckBodyType(const QByteArray& method, const QByteArray& contentType,
                      const QByteArray& body);

// The methods an endpoint answers, for Allow.
QByteArray AllowedMethods(Endpoint endpoint);

// The fields a body may hold for one endpoint and method, blank-separated.
// ParseCall refuses any other field with 400 naming it; a pair not in the
// table takes no field at all.
struct BodyFields {
    Endpoint endpoint;
    const char* method;
    const char* fields;
};
QByteArray FieldsOf(Endpoint endpoint, const QByteArray& method);

} // namespace Api
