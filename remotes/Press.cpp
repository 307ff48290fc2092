#include "remotes/Press.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "infrared/SignalStore.h"
#include "infrared/Transceiver.h"
#include "infrared/formats/IrFormats.h"
#include "remotes/Registry.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

SendResult TXSignalById(Transceiver& device, QStringView remote, QStringView button) {
    if (IsTestMode(device.settings))
        return SendResult::Sent;
    QString name = device.settings.Read(Key::RemoteName(remote));
    QString function = GetButtonFunc(device.settings, remote, button);
    QString path = SignalFilePath(device.folder, name, function);
    if (!QFileInfo::exists(path))
        return SendResult::Sent;
    return device.TransmitAndWait(path, Transceiver::Origin::Background,
                                  {u"page"_s, name, function});
}

NamedKeyProblem FindNamedKey(const ProgramFolder& folder, SettingsStore& settings,
                             QStringView remote, QStringView key, NamedKey* out) {
    const QString device = ShiftJis::RoundTrip(remote);
    const int slot = device.isEmpty() ? 0 : FindRemoteSlot(settings, device).existingSlot;
    if (slot == 0)
        return NamedKeyProblem::NoRemote;
    const std::vector<QString> buttons = ReadRemoteButtons(settings, slot);
    const QString function = ShiftJis::RoundTrip(key);
    for (int k = 0; k < int(buttons.size()); ++k) {
        if (function.isEmpty() || buttons[size_t(k)] != function)
            continue;
        *out = {slot, k, settings.Read(Key::RemoteName(slot)), function,
                SignalFilePath(folder, settings.Read(Key::RemoteName(slot)), function)};
        return QFileInfo::exists(out->path) ? NamedKeyProblem::None : NamedKeyProblem::NotLearned;
    }
    return NamedKeyProblem::NoKey;
}

std::optional<SignalImage> SignalImageOf(const IrTiming& timing, QString* why) {
    if (const QString problem = TimingProblem(timing); !problem.isEmpty()) {
        *why = problem;
        return {};
    }
    int needed = 0;
    const auto blob = BlobFromTiming(timing, &needed);
    if (!blob) {
        *why = u"持続時間が %1 種類あり、信号ファイルの %2 種類に収めると 5 % 以上ずれるため"
               u"信号ファイルにできません。"_s.arg(needed)
                   .arg(IrBlob::MaxTable);
        return {};
    }
    if (const QString problem = SignalProblem(*blob); !problem.isEmpty()) {
        *why = problem;
        return {};
    }
    const QByteArray bytes = blob->encode();
    if (bytes.size() > SignalFileSize - 2) {
        *why = u"信号ファイルには長すぎます。"_s;
        return {};
    }
    SignalImage image{};
    std::copy(bytes.begin(), bytes.end(), image.begin());
    StampSignalLength(image, int(bytes.size()));
    return image;
}
