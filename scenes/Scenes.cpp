#include "scenes/Scenes.h"

#include "climate/ClimateUnits.h"
#include "core/AtomicFile.h"
#include "core/BoundedRead.h"
#include "core/NameText.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "infrared/SignalStore.h"
#include "infrared/Transceiver.h"
#include "remotes/Registry.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QPointer>
#include <QSet>
#include <QTimer>

#include <cmath>
#include <deque>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcScenes, "kestrava.scenes")

const QString FileName = u"scenes.json"_s;

std::optional<int> intOf(const QJsonValue& v) {
    if (!v.isDouble())
        return std::nullopt;
    const double d = v.toDouble();
    if (d != std::floor(d) || d < -1e9 || d > 1e9)
        return std::nullopt;
    return int(d);
}

QString field(int index, const char* name) {
    return u"steps[%1].%2"_s.arg(index).arg(QLatin1StringView(name));
}

// Ranges and the name's characters: what any scene must hold, wherever it came from.
QString shapeError(const Scene& s) {
    const QString name = s.name.trimmed();
    if (name.isEmpty())
        return u"name にシーンの名前を入れてください。"_s;
    if (name.size() > Scenes::MaxNameLength)
        return u"name は %1 文字までです。"_s.arg(Scenes::MaxNameLength);
    // The name becomes a reservation's line ("シーン|<name>") and a CP932 page's text.
    const QString unmappable = ShiftJis::Unmappable(name);
    if (HasControlOrBrokenChar(name) || name.contains(u'|') || !unmappable.isEmpty())
        return u"name に使えない文字があります: %1"_s.arg(unmappable.isEmpty() ? u"|"_s
                                                                               : unmappable);
    if (s.steps.empty() || int(s.steps.size()) > Scenes::MaxSteps)
        return u"steps は 1〜%1 個の手順です。"_s.arg(Scenes::MaxSteps);
    for (int i = 0; i < int(s.steps.size()); ++i) {
        const SceneStep& step = s.steps[size_t(i)];
        switch (step.kind) {
        case SceneStep::Kind::Key:
            if (step.remote < 1 || step.remote > MaxRemoteId)
                return u"%1 はリモコンの番号（1〜%2）です。"_s.arg(field(i, "remote"))
                    .arg(MaxRemoteId);
            if (step.key < 0 || step.key > 999)
                return u"%1 はキーの番号（0〜999）です。"_s.arg(field(i, "key"));
            if (step.repeat < 1 || step.repeat > Scenes::MaxRepeat)
                return u"%1 は 1〜%2 です。"_s.arg(field(i, "repeat")).arg(Scenes::MaxRepeat);
            break;
        case SceneStep::Kind::Climate:
            if (step.climate.isEmpty() || step.climate.size() > 16 ||
                HasControlOrBrokenChar(step.climate))
                return u"%1 にエアコンの id を入れてください。"_s.arg(field(i, "climateId"));
            break;
        case SceneStep::Kind::Wait:
            if (step.waitMs < Scenes::MinWaitMs || step.waitMs > Scenes::MaxWaitMs)
                return u"%1 は %2〜%3 です。"_s.arg(field(i, "ms"))
                    .arg(Scenes::MinWaitMs)
                    .arg(Scenes::MaxWaitMs);
            break;
        }
    }
    return {};
}

QString unknownField(const QJsonObject& o, const QString& where,
                     std::initializer_list<const char16_t*> known) {
    for (auto it = o.begin(); it != o.end(); ++it) {
        bool found = false;
        for (const char16_t* k : known)
            found = found || it.key() == QStringView(k);
        if (!found)
            return u"%1%2 は使えない項目です。"_s.arg(where, it.key().left(40));
    }
    return {};
}

std::optional<SceneStep> stepFromJson(const QJsonValue& v, int i, QString* why) {
    const QString at = u"steps[%1]"_s.arg(i);
    auto fail = [&](const QString& text) -> std::optional<SceneStep> {
        *why = text;
        return std::nullopt;
    };
    if (!v.isObject())
        return fail(at + u" は手順のオブジェクトです。"_s);
    const QJsonObject o = v.toObject();
    const QString type = o.value(u"type"_s).toString();
    SceneStep step;
    QString unknown;
    if (type == u"key") {
        step.kind = SceneStep::Kind::Key;
        unknown = unknownField(o, at + u'.',
                               {u"type", u"remote", u"key", u"repeat", u"remoteName", u"keyName"});
        if (!unknown.isEmpty())
            return fail(unknown);
        const auto remote = intOf(o.value(u"remote"_s));
        if (!remote)
            return fail(
                u"%1 はリモコンの番号（1〜%2）です。"_s.arg(field(i, "remote")).arg(MaxRemoteId));
        const auto key = intOf(o.value(u"key"_s));
        if (!key)
            return fail(u"%1 はキーの番号（0〜999）です。"_s.arg(field(i, "key")));
        const QJsonValue r = o.value(u"repeat"_s);
        const auto repeat = r.isUndefined() ? std::optional(1) : intOf(r);
        if (!repeat)
            return fail(u"%1 は 1〜%2 です。"_s.arg(field(i, "repeat")).arg(Scenes::MaxRepeat));
        step.remote = *remote;
        step.key = *key;
        step.repeat = *repeat;
    } else if (type == u"climate") {
        step.kind = SceneStep::Kind::Climate;
        unknown = unknownField(o, at + u'.', {u"type", u"climateId", u"state", u"climateName"});
        if (!unknown.isEmpty())
            return fail(unknown);
        if (!o.value(u"climateId"_s).isString())
            return fail(u"%1 にエアコンの id を入れてください。"_s.arg(field(i, "climateId")));
        step.climate = o.value(u"climateId"_s).toString();
        if (!o.value(u"state"_s).isObject())
            return fail(u"%1 はエアコンの状態のオブジェクトです。"_s.arg(field(i, "state")));
        QString error;
        const auto state = ClimateStateFromJson(o.value(u"state"_s).toObject(), {}, &error);
        if (!state)
            return fail(field(i, "state") + u": "_s + error);
        step.state = *state;
    } else if (type == u"wait") {
        step.kind = SceneStep::Kind::Wait;
        unknown = unknownField(o, at + u'.', {u"type", u"ms"});
        if (!unknown.isEmpty())
            return fail(unknown);
        const auto ms = intOf(o.value(u"ms"_s));
        if (!ms)
            return fail(u"%1 は %2〜%3 です。"_s.arg(field(i, "ms"))
                            .arg(Scenes::MinWaitMs)
                            .arg(Scenes::MaxWaitMs));
        step.waitMs = *ms;
    } else {
        return fail(u"%1 は key、climate、wait のどれかです。"_s.arg(field(i, "type")));
    }
    return step;
}

} // namespace

QJsonObject SceneJson(const Scene& scene, bool withId) {
    QJsonArray steps;
    for (const SceneStep& s : scene.steps) {
        switch (s.kind) {
        case SceneStep::Kind::Key:
            steps.append(QJsonObject{{u"type"_s, u"key"_s},
                                     {u"remote"_s, s.remote},
                                     {u"key"_s, s.key},
                                     {u"repeat"_s, s.repeat}});
            break;
        case SceneStep::Kind::Climate:
            steps.append(QJsonObject{{u"type"_s, u"climate"_s},
                                     {u"climateId"_s, s.climate},
                                     {u"state"_s, ClimateStateJson(s.state)}});
            break;
        case SceneStep::Kind::Wait:
            steps.append(QJsonObject{{u"type"_s, u"wait"_s}, {u"ms"_s, s.waitMs}});
            break;
        }
    }
    QJsonObject o{{u"name"_s, scene.name}, {u"steps"_s, steps}};
    if (withId)
        o[u"id"_s] = scene.id;
    return o;
}

std::optional<Scene> SceneFromJson(const QJsonObject& json, QString* why) {
    QString error = unknownField(json, {}, {u"id", u"name", u"steps"});
    Scene scene;
    if (error.isEmpty() && !json.value(u"name"_s).isString())
        error = u"name にシーンの名前を入れてください。"_s;
    if (error.isEmpty() && !json.value(u"steps"_s).isArray())
        error = u"steps は 1〜%1 個の手順です。"_s.arg(Scenes::MaxSteps);
    if (error.isEmpty()) {
        scene.name = json.value(u"name"_s).toString().trimmed();
        const QJsonArray steps = json.value(u"steps"_s).toArray();
        if (steps.size() > Scenes::MaxSteps)
            error = u"steps は 1〜%1 個の手順です。"_s.arg(Scenes::MaxSteps);
        for (int i = 0; error.isEmpty() && i < steps.size(); ++i)
            if (auto step = stepFromJson(steps[i], i, &error))
                scene.steps.push_back(std::move(*step));
    }
    if (error.isEmpty())
        error = shapeError(scene);
    if (!error.isEmpty()) {
        if (why)
            *why = error;
        return std::nullopt;
    }
    return scene;
}

struct Scenes::Private {
    Private(Scenes* q, const ProgramFolder& folder, SettingsStore& settings, Transceiver& device,
            ClimateUnits& climates)
        : q(q), folder(folder), settings(settings), device(device), climates(climates) {}

    Scenes* q;
    const ProgramFolder& folder;
    SettingsStore& settings;
    Transceiver& device;
    ClimateUnits& climates;
    std::vector<Scene> list;
    // Set when the file could not be read whole: writing would lose what it holds.
    QString broken;

    struct Run {
        int id = 0;
        std::function<void(const SceneOutcome&)> done;
        QString source;
    };
    std::deque<Run> waiting;
    std::optional<Run> current;
    Scene scene; // the running one, as it was when it started
    int index = 0;
    QTimer wait;

    QString path() const { return folder.path(FileName); }
    Scene* find(int id) {
        for (Scene& s : list)
            if (s.id == id)
                return &s;
        return nullptr;
    }
    void load();
    bool save(QString* why);
    QString check(Scene& s, int self) const;
    QString keyText(const SceneStep& step) const;

    void startNext();
    void step();
    void sendKey(const QString& path, const SendLabel& label, int left);
    void advance();
    void fail(const QString& why);
    void end(SceneOutcome outcome);
};

void Scenes::Private::load() {
    const BoundedRead read = ReadBounded(path(), MaxFileBytes);
    if (read.result == BoundedRead::Missing)
        return;
    auto refuse = [this](const QString& why) {
        broken = why;
        qCWarning(lcScenes).noquote() << path() << "-" << why << "- changes are refused";
    };
    if (!read.ok())
        return refuse(read.error);
    QByteArray bytes = read.bytes;
    if (bytes.startsWith("\xEF\xBB\xBF"))
        bytes.remove(0, 3);
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject() ||
        !doc.object().value(u"scenes"_s).isArray())
        return refuse(u"not JSON with a \"scenes\" array"_s);
    QSet<int> ids;
    QSet<QString> names;
    for (const QJsonValue& v : doc.object().value(u"scenes"_s).toArray()) {
        QString why;
        auto scene = SceneFromJson(v.toObject(), &why);
        const auto id = intOf(v.toObject().value(u"id"_s));
        if (scene && (!id || *id < 1 || *id > MaxScenes || ids.contains(*id)))
            why = u"id is not a free number from 1 to 100"_s;
        else if (scene && names.contains(scene->name))
            why = u"name taken twice"_s;
        if (!why.isEmpty() || int(list.size()) >= MaxScenes) {
            refuse(u"scene %1: %2"_s.arg(list.size() + 1).arg(why.isEmpty() ? u"too many"_s : why));
            continue;
        }
        scene->id = *id;
        ids.insert(*id);
        names.insert(scene->name);
        list.push_back(std::move(*scene));
    }
}

bool Scenes::Private::save(QString* why) {
    QJsonArray all;
    for (const Scene& s : list)
        all.append(SceneJson(s));
    QString error;
    if (WriteFileAtomically(path(), QJsonDocument(QJsonObject{{u"scenes"_s, all}}).toJson(), 0644,
                            &error))
        return true;
    qCWarning(lcScenes).noquote() << "cannot write" << path() << "-" << error;
    if (why)
        *why = u"シーンを保存できませんでした: %1"_s.arg(error);
    return false;
}

// What a scene must hold to be stored: its shape, a name of its own, and
// remotes, keys and units that are there.
QString Scenes::Private::check(Scene& s, int self) const {
    if (!broken.isEmpty())
        return u"%1 を読めなかったため、シーンは変えられません（ファイルを直すか消してください）。"_s
            .arg(FileName);
    s.name = ShiftJis::RoundTrip(s.name.trimmed());
    if (QString error = shapeError(s); !error.isEmpty())
        return error;
    for (const Scene& other : list)
        if (other.id != self && other.name == s.name)
            return u"「%1」という名前のシーンはもうあります。"_s.arg(s.name);
    for (int i = 0; i < int(s.steps.size()); ++i) {
        const SceneStep& step = s.steps[size_t(i)];
        if (step.kind == SceneStep::Kind::Key) {
            const std::vector<QString> buttons = ReadRemoteButtons(settings, step.remote);
            if (settings.Read(Key::RemoteName(step.remote)).isEmpty() || buttons.empty())
                return u"%1: リモコン %2 はありません。"_s.arg(field(i, "remote")).arg(step.remote);
            if (step.key >= int(buttons.size()))
                return u"%1: キー %2 はありません。"_s.arg(field(i, "key")).arg(step.key);
        } else if (step.kind == SceneStep::Kind::Climate) {
            const auto unit = climates.unit(step.climate);
            if (!unit)
                return u"%1: エアコン %2 はありません。"_s.arg(field(i, "climateId"), step.climate);
            const ClimateFit fit = FitClimateState(unit->caps, step.state);
            if (!fit.state)
                return field(i, "state") + u": "_s + fit.why;
        }
    }
    return {};
}

QString Scenes::Private::keyText(const SceneStep& step) const {
    const QString device = settings.Read(Key::RemoteName(step.remote));
    const std::vector<QString> buttons = ReadRemoteButtons(settings, step.remote);
    const QString function = step.key < int(buttons.size()) ? buttons[size_t(step.key)] : QString();
    if (device.isEmpty() || function.isEmpty())
        return u"リモコン %1 キー %2"_s.arg(step.remote).arg(step.key);
    return device + u' ' + function;
}

void Scenes::Private::startNext() {
    while (!current && !waiting.empty()) {
        Run run = std::move(waiting.front());
        waiting.pop_front();
        const Scene* s = find(run.id);
        if (!s) {
            SceneOutcome outcome;
            outcome.why = u"シーン %1 はありません。"_s.arg(run.id);
            if (run.done)
                run.done(outcome);
            continue;
        }
        scene = *s;
        index = 0;
        current = std::move(run);
        qCInfo(lcScenes).noquote()
            << "scene" << scene.id << scene.name << "runs for" << current->source;
        emit q->runStarted(scene.id);
        step();
    }
}

void Scenes::Private::step() {
    if (index >= int(scene.steps.size()))
        return end({true, 0, {}});
    emit q->stepStarted(scene.id, index + 1);
    const SceneStep& s = scene.steps[size_t(index)];
    // As on the pages: test mode sends nothing.
    if (s.kind != SceneStep::Kind::Wait && IsTestMode(settings))
        return advance();
    switch (s.kind) {
    case SceneStep::Kind::Wait:
        wait.start(s.waitMs);
        return;
    case SceneStep::Kind::Key: {
        const QString device = settings.Read(Key::RemoteName(s.remote));
        const std::vector<QString> buttons = ReadRemoteButtons(settings, s.remote);
        if (device.isEmpty() || buttons.empty())
            return fail(u"リモコンがありません。"_s);
        if (s.key >= int(buttons.size()))
            return fail(u"キーがありません。"_s);
        const QString function = buttons[size_t(s.key)];
        const QString file =
            function.isEmpty() ? QString() : SignalFilePath(folder, device, function);
        if (file.isEmpty() || !QFileInfo::exists(file))
            return fail(u"このキーはまだ学習されていません。"_s);
        return sendKey(file, {current->source, device, function, false}, s.repeat);
    }
    case SceneStep::Kind::Climate: {
        QPointer<Scenes> self(q);
        climates.setState(s.climate, s.state,
                          [this, self](const ClimateUnits::Outcome& o) {
                              if (!self)
                                  return;
                              if (!o.sent)
                                  return fail(o.message.isEmpty() ? SendFailedText : o.message);
                              advance();
                          },
                          {current->source, {}, {}, false});
        return;
    }
    }
}

void Scenes::Private::sendKey(const QString& file, const SendLabel& label, int left) {
    QPointer<Scenes> self(q);
    device.Enqueue(
        file,
        [this, self, file, label, left](SendResult result) {
            if (!self)
                return;
            switch (result) {
            case SendResult::Sent:
                if (left > 1) {
                    SendLabel again = label;
                    again.again = true;
                    return sendKey(file, again, left - 1);
                }
                return advance();
            case SendResult::Busy:
                return fail(SendBusyText);
            case SendResult::NotOpened:
                return fail(device.PortIsSet() ? device.CannotActivateMessage()
                                               : Transceiver::PortUnsetText);
            case SendResult::Failed:
                return fail(SendFailedText);
            }
        },
        label);
}

void Scenes::Private::advance() {
    ++index;
    step();
}

void Scenes::Private::fail(const QString& why) {
    const int n = index + 1;
    end({false, n,
         u"手順 %1（%2）: %3"_s.arg(n).arg(q->stepText(scene.steps[size_t(index)]), why)});
}

void Scenes::Private::end(SceneOutcome outcome) {
    Run run = std::move(*current);
    current.reset();
    if (outcome.done)
        qCInfo(lcScenes).noquote() << "scene" << scene.id << "done";
    else
        qCWarning(lcScenes).noquote() << "scene" << scene.id << "stopped -" << outcome.why;
    emit q->runEnded(scene.id, outcome);
    if (run.done)
        run.done(outcome);
    // The next run starts from the event loop, not inside this one's callback.
    QTimer::singleShot(0, q, [this] { startNext(); });
}

Scenes::Scenes(const ProgramFolder& folder, SettingsStore& settings, Transceiver& transceiver,
               ClimateUnits& climates, QObject* parent)
    : QObject(parent), d_(new Private(this, folder, settings, transceiver, climates)) {
    d_->wait.setSingleShot(true);
    // Steps go on the wire at their planned time, not within the coarse timer's 5 %.
    d_->wait.setTimerType(Qt::PreciseTimer);
    connect(&d_->wait, &QTimer::timeout, this, [this] { d_->advance(); });
    d_->load();
}

Scenes::~Scenes() {
    delete d_;
}

std::vector<Scene> Scenes::scenes() const {
    return d_->list;
}

std::optional<Scene> Scenes::scene(int id) const {
    if (const Scene* s = d_->find(id))
        return *s;
    return std::nullopt;
}

std::optional<Scene> Scenes::sceneNamed(const QString& name) const {
    const QString wanted = ShiftJis::RoundTrip(name.trimmed());
    for (const Scene& s : d_->list)
        if (s.name == wanted)
            return s;
    return std::nullopt;
}

std::optional<int> Scenes::create(const Scene& wanted, QString* why) {
    Scene s = wanted;
    QString error = d_->check(s, 0);
    if (error.isEmpty() && int(d_->list.size()) >= MaxScenes)
        error = u"シーンは %1 個までです。"_s.arg(MaxScenes);
    if (!error.isEmpty()) {
        if (why)
            *why = error;
        return std::nullopt;
    }
    s.id = 1;
    while (d_->find(s.id))
        ++s.id;
    d_->list.push_back(s);
    if (!d_->save(why)) {
        d_->list.pop_back();
        return std::nullopt;
    }
    emit scenesChanged();
    return s.id;
}

bool Scenes::update(const Scene& wanted, QString* why) {
    Scene* old = d_->find(wanted.id);
    if (!old) {
        if (why)
            *why = u"シーン %1 はありません。"_s.arg(wanted.id);
        return false;
    }
    Scene s = wanted;
    if (QString error = d_->check(s, s.id); !error.isEmpty()) {
        if (why)
            *why = error;
        return false;
    }
    const Scene kept = std::exchange(*old, s);
    if (!d_->save(why)) {
        *d_->find(s.id) = kept;
        return false;
    }
    emit scenesChanged();
    return true;
}

bool Scenes::remove(int id, QString* why) {
    auto it =
        std::find_if(d_->list.begin(), d_->list.end(), [id](const Scene& s) { return s.id == id; });
    QString error = it == d_->list.end() ? u"シーン %1 はありません。"_s.arg(id) : QString();
    if (error.isEmpty() && !d_->broken.isEmpty())
        error = u"%1 を読めなかったため、シーンは変えられません。"_s.arg(FileName);
    if (!error.isEmpty()) {
        if (why)
            *why = error;
        return false;
    }
    const Scene kept = *it;
    const auto at = it - d_->list.begin();
    d_->list.erase(it);
    if (!d_->save(why)) {
        d_->list.insert(d_->list.begin() + at, kept);
        return false;
    }
    emit scenesChanged();
    return true;
}

void Scenes::run(int id, std::function<void(const SceneOutcome&)> done, const QString& source) {
    if (pending() >= MaxPending) {
        SceneOutcome refused;
        refused.why = u"実行を待っているシーンが多すぎます。"_s;
        if (done)
            done(refused);
        return;
    }
    d_->waiting.push_back({id, std::move(done), source.isEmpty() ? u"scene"_s : source});
    d_->startNext();
}

int Scenes::pending() const {
    return int(d_->waiting.size()) + (d_->current ? 1 : 0);
}

bool Scenes::readOnly() const {
    return !d_->broken.isEmpty();
}

QString Scenes::stepText(const SceneStep& step) const {
    switch (step.kind) {
    case SceneStep::Kind::Key:
        return d_->keyText(step);
    case SceneStep::Kind::Climate: {
        const auto unit = d_->climates.unit(step.climate);
        return (unit ? unit->name : step.climate) + u' ' + ClimateStateText(step.state);
    }
    case SceneStep::Kind::Wait:
        return u"%1 秒待つ"_s.arg(QString::number(step.waitMs / 1000.0, 'g', 6));
    }
    return {};
}
