#pragma once

#include "infrared/Climate.h"
#include "infrared/Transmission.h"

#include <QObject>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

class ProgramFolder;
class SettingsStore;
class Transceiver;

// What a SmartIR climate file's table holds (its modes, fans, temperatures
// and swing), read as an import reads it; nothing, with why, when it holds no
// state.
std::optional<ClimateCaps> SmartIrClimateCaps(const QByteArray& json, QString* why = nullptr);

// One air conditioner the program drives by state.
struct ClimateUnit {
    QString id;         // ASCII, stable: URLs, MQTT topics and lircd names use it
    QString name;       // as people named it ("寝室のエアコン")
    QString family;     // the codec family; empty for a unit driven by a table
    ClimateCaps caps;   // the family's, or what the table holds
    ClimateState state; // the state the unit is believed to be in
};

// The air conditioners: made by family, learned from a frame of the hand-held
// remote, or imported from a SmartIR climate file (then driven by its table of
// codes). Kept in setting.ini under sections of their own; each unit's last
// state in a file of its own, written atomically. Every change sends the
// whole new state through the one transceiver queue and is remembered only
// once it went out.
class ClimateUnits : public QObject {
    Q_OBJECT
public:
    ClimateUnits(const ProgramFolder& folder, SettingsStore& settings, Transceiver& transceiver,
                 QObject* parent = nullptr);
    ~ClimateUnits() override;

    std::vector<ClimateUnit> units() const;
    std::optional<ClimateUnit> unit(const QString& id) const;

    // Each returns the new unit's id; nothing, with why, on a refusal.
    std::optional<QString> create(const QString& name, const QString& family,
                                  const ClimateState& initial, QString* why = nullptr);
    // A frame of the hand-held remote: its family and state become the unit's.
    std::optional<QString> createFromSignal(const QString& name, const IrTiming& frame,
                                            QString* why = nullptr);
    // A SmartIR climate file; states its table lacks are refused when set.
    std::optional<QString> importSmartIr(const QString& name, const QByteArray& json,
                                         QString* why = nullptr);
    bool remove(const QString& id, QString* why = nullptr);

    struct Outcome {
        bool sent = false;
        QString message;    // why not, or what was rounded
        ClimateState state; // remembered after the send (as before on failure)
        // How the send ended; nothing when the state was refused before it.
        std::optional<SendResult> result;
    };
    // Fits the wanted state to the unit, sends it whole, remembers it once
    // sent. done runs once, after the send ended or was refused.
    void setState(const QString& id, const ClimateState& wanted,
                  std::function<void(const Outcome&)> done, SendLabel label = {});
    // The signal a state would send (the unit's family encoded, or its table's
    // code); nothing, with why, when the unit cannot hold it.
    std::optional<IrTiming> signalFor(const QString& id, const ClimateState& state,
                                      QString* why = nullptr) const;

    // A frame someone sent with the real remote: the unit of its family (or
    // whose table holds it) takes the state over, nothing is sent.
    void heard(const IrTiming& frame);

    // Units kept at most; ids are "ac1", "ac2", ...
    static constexpr int MaxUnits = 100;

signals:
    void unitsChanged();
    void stateChanged(const QString& id, const ClimateState& state);

private:
    struct Private;
    Private* d_;
};
