#include "api/SceneApi.h"
#include "api/ApiReply.h"

#include "climate/ClimateUnits.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "remotes/Registry.h"
#include "scenes/Scenes.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>

using namespace Qt::StringLiterals;

namespace {

using Api::error;
using Api::json;
using Api::JsonType;

const QString NoSceneText = u"シーンが見つかりません。"_s;

} // namespace

SceneApi::SceneApi(Scenes& scenes, SettingsStore& settings, ClimateUnits& climates,
                   std::function<void(const QByteArray&, const QJsonObject&)> publish,
                   QObject* parent)
    : QObject(parent), scenes_(scenes), settings_(settings), climates_(climates),
      publish_(std::move(publish)) {
    auto tell = [this](int id, const QString& state, int step, const QString& message) {
        const auto scene = scenes_.scene(id);
        if (publish_)
            publish_("scene", {{u"id"_s, id},
                               {u"name"_s, scene ? scene->name : QString()},
                               {u"state"_s, state},
                               {u"step"_s, step},
                               {u"message"_s, message}});
    };
    connect(&scenes_, &Scenes::stepStarted, this,
            [tell](int id, int step) { tell(id, u"running"_s, step, {}); });
    connect(&scenes_, &Scenes::runEnded, this, [tell](int id, const SceneOutcome& o) {
        tell(id, o.done ? u"done"_s : u"failed"_s, o.step, o.why);
    });
}

QJsonObject SceneApi::SceneAnswer(const Scene& scene) const {
    QJsonObject o = SceneJson(scene);
    QJsonArray steps = o.value(u"steps"_s).toArray();
    for (int i = 0; i < steps.size(); ++i) {
        const SceneStep& s = scene.steps[size_t(i)];
        QJsonObject step = steps[i].toObject();
        if (s.kind == SceneStep::Kind::Key) {
            const QString device = settings_.Read(Key::RemoteName(s.remote));
            const std::vector<QString> buttons = ReadRemoteButtons(settings_, s.remote);
            step[u"remoteName"_s] = device.isEmpty() ? QJsonValue() : QJsonValue(device);
            step[u"keyName"_s] = s.key < int(buttons.size()) && !buttons[size_t(s.key)].isEmpty()
                                     ? QJsonValue(buttons[size_t(s.key)])
                                     : QJsonValue();
        } else if (s.kind == SceneStep::Kind::Climate) {
            const auto unit = climates_.unit(s.climate);
            step[u"climateName"_s] = unit ? QJsonValue(unit->name) : QJsonValue();
        }
        steps[i] = step;
    }
    o[u"steps"_s] = steps;
    return o;
}

void SceneApi::Handle(const Api::Call& c, const FrontReply& r) {
    using E = Api::Endpoint;
    if (c.endpoint == E::Scenes && c.method == "GET") {
        QJsonArray list;
        for (const Scene& s : scenes_.scenes())
            list.append(SceneAnswer(s));
        return json(r, 200, {{u"scenes"_s, list}});
    }
    if (c.endpoint == E::SceneRun)
        return run(c.scene, r);
    if (c.endpoint == E::Scene && c.method != "PUT") {
        const auto scene = scenes_.scene(c.scene);
        if (!scene)
            return error(r, 404, "not_found", NoSceneText);
        if (c.method == "GET")
            return json(r, 200, SceneAnswer(*scene));
        QString why;
        if (!scenes_.remove(c.scene, &why))
            return error(r, scenes_.readOnly() ? 409 : 500, "not_written", why);
        return r.Send(204, {}, {});
    }
    store(c, r);
}

// POST makes a scene, PUT changes one: the same body, checked the same way.
void SceneApi::store(const Api::Call& c, const FrontReply& r) {
    const bool creating = c.endpoint == Api::Endpoint::Scenes;
    if (!creating && !scenes_.scene(c.scene))
        return error(r, 404, "not_found", NoSceneText);
    QString why;
    auto scene = SceneFromJson(c.body, &why);
    if (!scene)
        return error(r, 400, "bad_request", why);
    scene->id = creating ? 0 : c.scene;
    if (scenes_.readOnly())
        return error(r, 409, "read_only",
                     u"シーンのファイルを読めなかったため、変えられません。"_s);
    if (const auto same = scenes_.sceneNamed(scene->name); same && same->id != scene->id)
        return error(r, 409, "conflict",
                     u"「%1」という名前のシーンはもうあります。"_s.arg(same->name));
    int id = scene->id;
    if (creating) {
        const auto made = scenes_.create(*scene, &why);
        id = made.value_or(0);
    } else if (!scenes_.update(*scene, &why)) {
        id = 0;
    }
    if (!id)
        return error(r, 400, "bad_request", why);
    json(r, creating ? 201 : 200, SceneAnswer(*scenes_.scene(id)));
}

void SceneApi::run(int id, const FrontReply& r) {
    if (!scenes_.scene(id))
        return error(r, 404, "not_found", NoSceneText);
    // The answer goes when the run has ended; a closed connection does not stop it.
    scenes_.run(
        id,
        [this, self = QPointer<SceneApi>(this), id, r](const SceneOutcome& o) {
            if (o.done)
                return json(r, 200, {{u"done"_s, true}});
            // Refused before a step: removed while it waited, or too many waiting.
            if (!o.step)
                return self && !scenes_.scene(id) ? error(r, 404, "not_found", NoSceneText)
                                                  : error(r, 503, "busy", o.why);
            json(r, 502,
                 {{u"error"_s, u"step_failed"_s}, {u"message"_s, o.why}, {u"step"_s, o.step}});
        },
        u"api"_s);
}
