#pragma once

#include "infrared/Climate.h"

#include <QJsonObject>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

class ClimateUnits;
class ProgramFolder;
class SettingsStore;
class Transceiver;

// One step of a scene: a key of a remote, an air conditioner's state, or a pause.
struct SceneStep {
    enum class Kind { Key, Climate, Wait };
    Kind kind = Kind::Key;
    int remote = 0;  // Key: the remote's number (1..), as the API numbers it
    int key = -1;    // Key: the key's number (0..)
    int repeat = 1;  // Key: sends, 1 to 20
    QString climate; // Climate: the unit's id
    ClimateState state;
    int waitMs = 0; // Wait: MinWaitMs to MaxWaitMs
};

struct Scene {
    int id = 0; // 1..MaxScenes, kept while the scene lives
    QString name;
    std::vector<SceneStep> steps;
};

// How a run ended: done, or the step (1-based) that failed and why.
struct SceneOutcome {
    bool done = false;
    int step = 0;
    QString why;
};

// A scene as JSON, the file's form and the API's: {"name", "steps": [{"type":
// "key", "remote", "key", "repeat"}, {"type": "climate", "climateId", "state"},
// {"type": "wait", "ms"}]}. withId adds "id".
QJsonObject SceneJson(const Scene& scene, bool withId = true);
// A scene read from JSON strictly: a field it does not know, a wrong type or a
// number out of range refuses it, why naming the field ("steps[2].ms"). "id"
// and the names answers carry (remoteName, keyName, climateName) are passed over.
std::optional<Scene> SceneFromJson(const QJsonObject& json, QString* why = nullptr);

// Named sequences of steps, kept in the program folder. A run sends its steps
// through the one transceiver queue in order, waits where told, and stops at
// the first step that fails; a run asked for while another goes waits behind it.
class Scenes : public QObject {
    Q_OBJECT
public:
    Scenes(const ProgramFolder& folder, SettingsStore& settings, Transceiver& transceiver,
           ClimateUnits& climates, QObject* parent = nullptr);
    ~Scenes() override;

    std::vector<Scene> scenes() const;
    std::optional<Scene> scene(int id) const;
    std::optional<Scene> sceneNamed(const QString& name) const;

    // Each refuses (nothing or false, with why) a bad name, a name taken, an
    // empty or too long list, a step out of range, a file that cannot be written.
    std::optional<int> create(const Scene& scene, QString* why = nullptr);
    bool update(const Scene& scene, QString* why = nullptr);
    bool remove(int id, QString* why = nullptr);

    // Queues a run; done runs once, when it has ended (or was refused).
    // source names the front in the log and the press labels ("api", "mqtt", ...).
    void run(int id, std::function<void(const SceneOutcome&)> done, const QString& source = {});
    // Runs going or waiting.
    int pending() const;
    // Whether changes are refused because the file could not be read.
    bool readOnly() const;
    // "テレビ 電源", "寝室 冷房 26℃ 自動", "1.5 秒待つ": a step as people read it.
    QString stepText(const SceneStep& step) const;

    static constexpr int MaxScenes = 100;
    static constexpr int MaxSteps = 50;
    static constexpr int MaxNameLength = 40;
    static constexpr int MinWaitMs = 100;
    static constexpr int MaxWaitMs = 30000;
    static constexpr int MaxRepeat = 20;
    // Runs waiting at most; a run past it is refused.
    static constexpr int MaxPending = 100;
    // The file's size at most.
    static constexpr qsizetype MaxFileBytes = 1024 * 1024;

signals:
    void scenesChanged();
    void runStarted(int id);
    void stepStarted(int id, int step);
    void runEnded(int id, const SceneOutcome& outcome);

private:
    struct Private;
    Private* d_;
};
