#include "app/Demo.h"

#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "remotes/Registry.h"
#include "setup/PortChoice.h"

#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcDemo, "kestrava.demo")

struct DemoRemote {
    int id;
    QString device;
    int design;
    uint8_t address;                                // NEC address of the made-up appliance
    std::vector<std::pair<int, QString>> functions; // button, function
};

// One remote of each design with a handful of learned keys, so that the pages
// and the desktop show working remotes from the first start.
const std::vector<DemoRemote>& demoRemotes() {
    static const std::vector<DemoRemote> remotes = {
        {1,
         u"テレビ"_s,
         4,
         0x40,
         {{0, u"電源"_s},
          {1, u"ch1"_s},
          {2, u"ch2"_s},
          {3, u"ch3"_s},
          {13, u"ch+"_s},
          {14, u"ch-"_s},
          {18, u"音量+"_s},
          {19, u"音量-"_s}}},
        {2,
         u"エアコン"_s,
         3,
         0x23,
         {{0, u"電源"_s}, {1, u"温度+"_s}, {2, u"温度-"_s}, {3, u"風量"_s}}},
        {3,
         u"ビデオ"_s,
         1,
         0x51,
         {{0, u"電源"_s}, {1, u"再生"_s}, {2, u"停止"_s}, {3, u"早送り"_s}, {4, u"巻き戻し"_s}}},
        {4, u"照明"_s, 2, 0x62, {{0, u"全灯"_s}, {1, u"常夜灯"_s}, {2, u"消灯"_s}}},
        {5,
         u"オーディオ"_s,
         5,
         0x73,
         {{0, u"電源"_s}, {1, u"CD"_s}, {2, u"ラジオ"_s}, {3, u"音量+"_s}, {4, u"音量-"_s}}},
        {6,
         u"ケーブルTV"_s,
         6,
         0x84,
         {{0, u"電源"_s},
          {1, u"番組表"_s},
          {2, u"決定"_s},
          {3, u"戻る"_s},
          {4, u"録画予約一覧"_s}}},
    };
    return remotes;
}

} // namespace

bool PrepareDemoFolder(const ProgramFolder& folder, SettingsStore& settings) {
    if (QFileInfo::exists(folder.settingsPath()))
        return false;
    settings.Write(Key::TransceiverPath, u"sim");
    // Beside another instance the usual port may be taken: the folder gets a
    // free one for good.
    const quint16 port =
        CanListen(DemoWebPort) ? DemoWebPort : FirstFreeWebPort(settings, {}).value_or(DemoWebPort);
    settings.Write(Key::WebPort, QString::number(port));
    settings.Write(Key::Internet, u"0");

    QDir().mkpath(folder.path(u"IRSignals"));
    for (const DemoRemote& r : demoRemotes()) {
        settings.Write(Key::RemoteName(r.id), r.device);
        settings.Write(Key::RemoteDesign(r.id), QString::number(r.design));
        for (const auto& [button, function] : r.functions) {
            settings.Write(Key::RemoteButton(r.id, button), function);
            QString error;
            if (!WriteSignalFile(SignalFilePath(folder, r.device, function),
                                 SimDriver::NecSignal(r.address, uint8_t(button)), &error))
                qCWarning(lcDemo).noquote() << error;
        }
    }
    return true;
}
