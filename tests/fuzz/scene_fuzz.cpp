// A scene as the API's bodies and the scenes file bring it: a JSON object, or
// a file's {"scenes": [...]}. What is taken holds every limit and reads back
// the same.
#include "scenes/Scenes.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cstdlib>

namespace {
void check(const QJsonObject& json) {
    QString why;
    const auto scene = SceneFromJson(json, &why);
    if (!scene) {
        if (why.isEmpty())
            abort();
        return;
    }
    if (scene->steps.empty() || int(scene->steps.size()) > Scenes::MaxSteps ||
        scene->name.isEmpty() || scene->name.size() > Scenes::MaxNameLength)
        abort();
    for (const SceneStep& s : scene->steps)
        if ((s.kind == SceneStep::Kind::Wait &&
             (s.waitMs < Scenes::MinWaitMs || s.waitMs > Scenes::MaxWaitMs)) ||
            (s.kind == SceneStep::Kind::Key &&
             (s.remote < 1 || s.key < 0 || s.repeat < 1 || s.repeat > Scenes::MaxRepeat)))
            abort();
    const QJsonObject again = SceneJson(*scene);
    const auto reread = SceneFromJson(again);
    if (!reread || SceneJson(*reread) != again)
        abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QJsonObject o =
        QJsonDocument::fromJson(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)))
            .object();
    check(o);
    for (const QJsonValue& v : o.value(QStringLiteral("scenes")).toArray())
        check(v.toObject());
    return 0;
}
