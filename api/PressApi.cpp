#include "api/PressApi.h"

#include "api/ApiReply.h"
#include "core/AtomicFile.h"
#include "core/NameText.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "infrared/SignalStore.h"
#include "infrared/Transceiver.h"
#include "infrared/formats/IrFormats.h"
#include "remotes/Press.h"
#include "remotes/Registry.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QPointer>

#include <cmath>
#include <memory>

using namespace Qt::StringLiterals;
using namespace Api;

PressApi::PressApi(const ProgramFolder& folder, SettingsStore& settings, Transceiver& device,
                   QObject* parent)
    : QObject(parent), folder_(folder), settings_(settings), device_(device) {}

void PressApi::Press(const Api::Call& c, const FrontReply& r) {
    const QJsonValue n = c.body.value(u"repeat"_s);
    const int repeat = n.isUndefined() ? 1 : n.toInt(0);
    if (repeat < 1 || repeat > MaxRepeat)
        return bad(r, u"repeat は 1～%1 の整数にしてください。"_s.arg(MaxRepeat));
    press(c.remote, c.key, repeat, r);
}

void PressApi::press(int remote, int key, int repeat, const FrontReply& r) {
    if (IsTestMode(settings_))
        return json(r, 200, {{u"ok"_s, true}, {u"testMode"_s, true}});
    const QString device = settings_.Read(Key::RemoteName(remote));
    const std::vector<QString> buttons = ReadRemoteButtons(settings_, remote);
    if (device.isEmpty() || buttons.empty())
        return notFound(r, NoRemoteText);
    if (key >= int(buttons.size()))
        return notFound(r, NoKeyText);
    const QString function = buttons[size_t(key)];
    const QString path = function.isEmpty() ? QString() : SignalFilePath(folder_, device, function);
    if (path.isEmpty() || !QFileInfo::exists(path))
        return error(r, 409, "not_learned", NotLearnedText);
    // The same queue as every other press; the answer goes once the last
    // repeat has gone out. A repeat finds its file again, so a key deleted
    // meanwhile ends the presses with a clear answer.
    auto left = std::make_shared<int>(repeat);
    auto step = std::make_shared<std::function<void()>>();
    QPointer<PressApi> self(this);
    *step = [this, self, r, path, device, function, left, step, repeat] {
        if (!self)
            return;
        device_.Enqueue(path,
                        [this, self, r, path, left, step](SendResult result) {
                            if (!self) {
                                *step = nullptr;
                                return;
                            }
                            switch (result) {
                            case SendResult::Sent:
                                if (--*left > 0 && QFileInfo::exists(path))
                                    return (*step)();
                                *step = nullptr; // ends the cycle of references
                                if (*left > 0)
                                    return error(r, 409, "not_learned",
                                                 u"送信中にキーが削除されました。"_s);
                                return json(r, 200, {{u"ok"_s, true}});
                            case SendResult::Busy:
                                *step = nullptr;
                                return error(r, 503, "busy", SendBusyText, "Retry-After: 1\r\n");
                            case SendResult::NotOpened:
                                *step = nullptr;
                                return error(r, 502, "transceiver_failed",
                                             device_.PortIsSet() ? device_.CannotActivateMessage()
                                                                 : Transceiver::PortUnsetText);
                            case SendResult::Failed:
                                *step = nullptr;
                                return error(r, 502, "transceiver_failed",
                                             QFileInfo::exists(path)
                                                 ? SendFailedText + u'\n' + device_.Problem()
                                                 : u"送信する前にキーが削除されました。"_s);
                            }
                        },
                        {u"api"_s, device, function, *left < repeat});
    };
    (*step)();
}

void PressApi::PressByName(const Api::Call& c, const FrontReply& r) {
    const QJsonValue remote = c.body.value(u"remote"_s), key = c.body.value(u"key"_s);
    if (!remote.isString() || !key.isString())
        return bad(r, u"remote と key に名前を入れてください。"_s);
    if (HasControlOrBrokenChar(remote.toString()) || HasControlOrBrokenChar(key.toString()))
        return bad(r, u"remote と key の名前に制御文字や壊れた文字は使えません。"_s);
    const int repeat = c.body.value(u"repeat"_s).toInt(1);
    if (repeat < 1 || repeat > MaxRepeat)
        return bad(r, u"repeat は 1～%1 の整数にしてください。"_s.arg(MaxRepeat));
    NamedKey k;
    switch (FindNamedKey(folder_, settings_, remote.toString(), key.toString(), &k)) {
    case NamedKeyProblem::NoRemote:
        return notFound(r, u"「%1」というリモコンはありません。"_s.arg(remote.toString()));
    case NamedKeyProblem::NoKey:
        return notFound(
            r, u"「%1」に「%2」というキーはありません。"_s.arg(remote.toString(), key.toString()));
    case NamedKeyProblem::NotLearned:
    case NamedKeyProblem::None:
        return press(k.slot, k.key, repeat, r);
    }
}

namespace {

// Why a body's timings are no signal, in the API's words; "" when they are one.
QString TimingsProblem(const QJsonValue& value) {
    if (!value.isArray() || value.toArray().isEmpty())
        return u"timings に µs の数の列を入れてください（パルスは正、間は負の数）。"_s;
    const QJsonArray timings = value.toArray();
    if (timings.size() > MaxDurations)
        return u"timings が %1 個あります（%2 個まで）。"_s.arg(timings.size()).arg(MaxDurations);
    double total = 0;
    for (qsizetype i = 0; i < timings.size(); ++i) {
        const double v = timings[i].toDouble(0);
        if (!timings[i].isDouble() || v == 0 || std::abs(v) > MaxSignalUs)
            return u"timings の %1 番目が µs の長さ（0 でない %2 までの数）ではありません。"_s
                .arg(i + 1)
                .arg(MaxSignalUs);
        if (i == 0 && v < 0)
            return u"timings はパルス（正の数）から始めてください（間は負の数）。"_s;
        total += std::abs(v);
    }
    if (total > MaxSignalUs)
        return u"timings の合計が %1 ms で、キーの信号の長さ（%2 ms）を超えます。"_s
            .arg(qint64(total / 1000))
            .arg(MaxSignalUs / 1000);
    return {};
}

} // namespace

void PressApi::Transmit(const Api::Call& c, const FrontReply& r) {
    if (const QString problem = TimingsProblem(c.body.value(u"timings"_s)); !problem.isEmpty())
        return bad(r, problem);
    QString why, field;
    const QByteArray bytes = QJsonDocument(c.body).toJson(QJsonDocument::Compact);
    const auto code = ReadTimingJson(bytes, u"request"_s, &why, &field);
    if (field == u"modulation")
        return bad(r, u"modulation（搬送波）は %1～%2 Hz にしてください。"_s.arg(MinCarrierHz)
                          .arg(MaxCarrierHz));
    if (!code)
        return bad(r, u"timings を信号にできません（%1）。"_s.arg(why));
    const auto image = SignalImageOf(code->timing, &why);
    if (!image)
        return bad(r, u"timings を信号にできません（%1）。"_s.arg(why));
    const int repeat = c.body.value(u"repeat_count"_s).toInt(0);
    if (repeat < 0 || repeat > MaxRepeat)
        return bad(r, u"repeat_count は 0～%1 にしてください。"_s.arg(MaxRepeat));
    // The queue takes signal files; this one is read back before Enqueue returns.
    const QString path = folder_.path(u"api-transmit.tmp"_s);
    if (!WriteFileAtomically(
            path, QByteArrayView(reinterpret_cast<const char*>(image->data()), SignalFileSize),
            0644, &why))
        return error(r, 500, "not_written", u"送る信号を書き込めませんでした（%1）。"_s.arg(why));
    auto left = std::make_shared<int>(repeat + 1);
    auto results = std::make_shared<SendResult>(SendResult::Sent);
    for (int i = 0; i <= repeat; ++i)
        device_.Enqueue(path,
                        [this, r, left, results](SendResult result) {
                            if (result != SendResult::Sent && *results == SendResult::Sent)
                                *results = result;
                            if (--*left > 0)
                                return;
                            switch (*results) {
                            case SendResult::Sent:
                                return json(r, 200, {{u"ok"_s, true}});
                            case SendResult::Busy:
                                return error(r, 503, "busy", SendBusyText, "Retry-After: 1\r\n");
                            default:
                                return error(r, 502, "transceiver_failed",
                                             device_.PortIsSet() ? device_.CannotActivateMessage()
                                                                 : Transceiver::PortUnsetText);
                            }
                        },
                        {u"api"_s, {}, {}});
    QFile::remove(path);
}
