#pragma once

#include "api/ApiRequest.h"
#include "webserver/WebServer.h"

#include <QByteArray>
#include <QJsonObject>
#include <QObject>

#include <functional>

class ClimateUnits;
class ProgramFolder;
class Transceiver;
struct ClimateUnit;

// /api/v1/climates: the air conditioners, their states and how they are made
// (by family, learned from one frame of the hand-held remote, or imported
// from a SmartIR file). The JSON API routes its calls here.
class ClimateApi : public QObject {
    Q_OBJECT
public:
    ClimateApi(const ProgramFolder& folder, ClimateUnits& units, Transceiver& device,
               std::function<void(const QByteArray&, const QJsonObject&)> publish,
               QObject* parent = nullptr);

    void Handle(const Api::Call& call, const FrontReply& reply);

    static QJsonObject UnitJson(const ClimateUnit& unit);

    // A SmartIR file may be larger than other bodies.
    static constexpr qsizetype MaxImportBody = 4 * 1024 * 1024;

private:
    void list(const FrontReply& r);
    void create(const Api::Call& c, const FrontReply& r);
    void learn(const Api::Call& c, const FrontReply& r);
    void import(const Api::Call& c, const FrontReply& r);
    void putState(const Api::Call& c, const FrontReply& r);

    const ProgramFolder& folder_;
    ClimateUnits& units_;
    Transceiver& device_;
    std::function<void(const QByteArray&, const QJsonObject&)> publish_;
    bool capturing_ = false;
};
