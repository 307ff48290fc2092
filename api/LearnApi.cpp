#include "api/LearnApi.h"

#include "api/ApiReply.h"
#include "api/CaptureStart.h"
#include "api/RemotesApi.h"
#include "core/ProgramFolder.h"
#include "infrared/SignalStore.h"
#include "infrared/Transceiver.h"
#include "infrared/formats/IrFormats.h"
#include "learning/LearningStore.h"
#include "remotes/Press.h"

using namespace Qt::StringLiterals;
using namespace Api;

LearnApi::LearnApi(const ProgramFolder& folder, RemotesApi& remotes, Transceiver& device,
                   std::function<void(const QByteArray&, const QJsonObject&)> publish)
    : folder_(folder), remotes_(remotes), device_(device), publish_(std::move(publish)) {}

void LearnApi::Learn(const Api::Call& c, const FrontReply& r) {
    RemotesApi::KeyTarget t;
    if (!remotes_.FindKey(c, false, &t, r))
        return;
    if (!Api::ReadyToCapture(folder_, device_, capturing_, r))
        return;
    // The capture waits as the wizard's does, nested, at most its time-out.
    capturing_ = true;
    learning_ = {c.remote, c.key};
    cancelled_ = false;
    device_.timDeactivate.stop();
    const bool got = device_.CaptureTira();
    capturing_ = false;
    learning_ = {};
    if (!got) {
        device_.CancelCaptureTira();
        device_.ClearAll();
        if (cancelled_)
            return error(r, 409, "cancelled", u"学習を取り消しました。"_s);
        return error(r, 408, "capture_timeout", u"信号を受信できませんでした。"_s);
    }
    SignalImage image = device_.SignalBuf;
    int length = device_.SignalLen;
    const IrCode code = TidyCapture(image, length, true);
    StampSignalLength(image, length);
    device_.CancelCaptureTira();
    device_.ClearAll();
    device_.timDeactivate.start();
    // The remote may have gone while the capture waited.
    RemotesApi::KeyTarget now;
    if (!remotes_.FindKey(c, false, &now, r))
        return;
    QString why;
    if (!remotes_.StoreKey(c.remote, c.key, t.name, image, &why))
        return error(r, 500, "not_written", why);
    publish_("learned", {{u"remote"_s, now.device}, {u"key"_s, t.name}});
    Q_UNUSED(code);
    raw(r, 200, remotes_.KeyJson(now.device, c.key, t.name));
}

// Ends the capture a learn of this key waits on; that learn then answers 409.
void LearnApi::Cancel(const Api::Call& c, const FrontReply& r) {
    if (learning_ != std::pair{c.remote, c.key} || device_.CaptureWaiting != 1)
        return error(r, 409, "not_learning", u"このキーは信号を待っていません。"_s);
    cancelled_ = true;
    device_.CancelCaptureTira();
    json(r, 200, {{u"cancelled"_s, true}});
}

void LearnApi::Import(const Api::Call& c, const FrontReply& r) {
    RemotesApi::KeyTarget t;
    if (!remotes_.FindKey(c, false, &t, r))
        return;
    const QJsonValue v = c.body.value(u"code"_s);
    if (!v.isString() || v.toString().trimmed().isEmpty())
        return bad(
            r, u"code に信号（kestrava-ir convert が読める形式か nec:0x0408）を入れてください。"_s);
    const QString text = v.toString().trimmed();
    QString why;
    std::optional<IrTiming> timing;
    if (const auto spec = ParseCodeSpec(text, &why)) {
        timing = EncodeSignal(*spec);
        if (!timing)
            return bad(r, u"この符号からは信号を作れません。"_s);
    } else {
        // The text came whole in the JSON; only trimming took its last line break.
        const IrCodeRead read = ReadIrCodes(text.toUtf8() + '\n', u"code"_s);
        if (!read.ok())
            return bad(r, u"code の信号を読めません（%1）。"_s.arg(read.error));
        if (read.codes.size() != 1)
            return bad(
                r,
                read.codes.empty()
                    ? (read.refused.isEmpty()
                           ? u"code に信号が見つかりません。"_s
                           : u"code の信号を使えません（%1）。"_s.arg(read.refused.join(u'\n')))
                    : u"信号が %1 個あります。一つだけにしてください。"_s.arg(read.codes.size()));
        timing = read.codes.front().timing;
    }
    const auto image = SignalImageOf(*timing, &why);
    if (!image)
        return bad(r, u"code を信号にできません（%1）。"_s.arg(why));
    if (!remotes_.StoreKey(c.remote, c.key, t.name, *image, &why))
        return error(r, 500, "not_written", why);
    publish_("learned", {{u"remote"_s, t.device}, {u"key"_s, t.name}});
    raw(r, 200, remotes_.KeyJson(t.device, c.key, t.name));
}
