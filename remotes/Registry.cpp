#include "remotes/Registry.h"

#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"

#include <QFile>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

const std::array<Design, 6>& Designs() {
    static const std::array<Design, 6> designs = {{
        {1, u"AVリモコン27ボタン"_s, 4, 27},
        {2, u"汎用13ボタン"_s, 0, 13},
        {3, u"エアコン6ボタン"_s, 2, 6},
        {4, u"テレビ20ボタン"_s, 3, 20},
        {5, u"AVリモコン45ボタン"_s, 5, 45},
        {6, u"汎用66ボタン"_s, 1, 66},
    }};
    return designs;
}

const Design* DesignByText(QStringView text) {
    for (const Design& d : Designs())
        if (text == d.text())
            return &d;
    return nullptr;
}

const Design* DesignByOption(int optionIndex) {
    for (const Design& d : Designs())
        if (d.optionIndex == optionIndex)
            return &d;
    return nullptr;
}

QString GetButtonFunc(SettingsStore& settings, QStringView remoteId, QStringView buttonId) {
    return settings.Read(Key::RemoteButton(remoteId, buttonId));
}

std::vector<QString> ReadRemoteButtons(SettingsStore& settings, int remoteId) {
    const Design* design = DesignByText(settings.Read(Key::RemoteDesign(remoteId)));
    std::vector<QString> buttons;
    if (!design)
        return buttons;
    buttons.reserve(size_t(design->buttonCount));
    for (int k = 0; k < design->buttonCount; ++k)
        buttons.push_back(settings.Read(Key::RemoteButton(remoteId, k)));
    return buttons;
}

bool HasBadFileChar(QStringView text) {
    for (QChar c : text)
        if (QStringView(u"\"*/:<>?\\|").contains(c))
            return true;
    return false;
}

int FitLabel(QStringView functionName) {
    qsizetype bytes = ShiftJis::ByteLength(functionName);
    if (bytes <= 6)
        return 8;
    if (bytes <= 9)
        return 6;
    return 5;
}

bool IsTestMode(SettingsStore& settings) {
    return settings.IsOn(Key::TestMode);
}

QString TestModeDevice::function(int buttonId) const {
    for (const auto& [id, name] : functions)
        if (id == buttonId)
            return name;
    return {};
}

namespace {

std::vector<std::pair<int, QString>> channels() {
    std::vector<std::pair<int, QString>> f{{0, u"電源"_s}};
    for (int ch = 1; ch <= 12; ++ch)
        f.emplace_back(ch, u"ch"_s + QString::number(ch));
    return f;
}

std::vector<std::pair<int, QString>> with(std::vector<std::pair<int, QString>> base,
                                          std::initializer_list<std::pair<int, QString>> more) {
    base.insert(base.end(), more.begin(), more.end());
    return base;
}

} // namespace

const std::array<TestModeDevice, 3>& TestModeDevices() {
    static const std::array<TestModeDevice, 3> devices = {{
        {1, u"テレビ"_s, 4,
         with(channels(), {{13, u"ch+"_s},
                           {14, u"ch-"_s},
                           {15, u"TV/Video"_s},
                           {18, u"音量+"_s},
                           {19, u"音量-"_s}})},
        {2, u"ビデオ"_s, 5,
         with(channels(), {{13, u"+0"_s},
                           {19, u"ch+"_s},
                           {20, u"ch-"_s},
                           {39, u"Rew"_s},
                           {40, u"FF"_s},
                           {41, u"Stop"_s},
                           {43, u"Play"_s},
                           {44, u"Rec"_s}})},
        {3,
         u"エアコン"_s,
         3,
         {{0, u"電源"_s}, {1, u"温度+"_s}, {2, u"温度-"_s}, {3, u"風量"_s}, {4, u"暖/冷"_s}}},
    }};
    return devices;
}

DeviceList FillDevices(SettingsStore& settings) {
    DeviceList list;
    if (IsTestMode(settings)) {
        for (const TestModeDevice& d : TestModeDevices())
            list.items.push_back({d.name, std::nullopt});
    } else {
        for (int id = 1; id <= MaxListedRemoteId; ++id) {
            QString name = settings.Read(Key::RemoteName(id));
            if (!name.isEmpty())
                list.items.push_back({name, id});
        }
    }
    list.shownText = u"--- 選択 ---"_s;
    return list;
}

RemoteSlot FindRemoteSlot(SettingsStore& settings, const QString& deviceName) {
    // Compared as stored: "AV〜" typed is the remote "AV～" read back.
    const QString stored = ShiftJis::RoundTrip(deviceName);
    RemoteSlot slot;
    for (int i = 1; i <= MaxRemoteId; ++i) {
        const QString device = settings.Read(Key::RemoteName(i));
        if (device.isEmpty()) {
            if (!slot.freeSlot)
                slot.freeSlot = i;
        } else if (device == stored) {
            slot.existingSlot = i;
            break;
        }
    }
    return slot;
}

namespace {
QByteArray StampOf(const QString& path) {
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return "-";
    return QByteArray::number(qlonglong(st.st_size)) + ':' +
           QByteArray::number(qlonglong(st.st_mtim.tv_sec)) + '.' +
           QByteArray::number(qlonglong(st.st_mtim.tv_nsec)) + ':' +
           QByteArray::number(qulonglong(st.st_ino));
}
} // namespace

QByteArray RegistryStamp(const SettingsStore& settings, const ProgramFolder& folder) {
    return StampOf(settings.path()) + '|' + StampOf(folder.path(u"IRSignals"_s));
}
