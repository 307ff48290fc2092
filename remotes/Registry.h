#pragma once

#include "core/SettingKeys.h"

#include <QString>
#include <QStringView>

#include <array>
#include <optional>
#include <utility>
#include <vector>

class ProgramFolder;
class SettingsStore;

// The registry of learned remotes: section Remote-<id> of setting.ini holds
// Device, Design and Button-<k> (the function on picture button k). Nothing is
// kept in memory; every list is read anew.

// Lists show remotes 1 to 100; learning may number remotes up to 1000.
constexpr int MaxListedRemoteId = 100;
constexpr int MaxRemoteId = 1000;

using Key::ButtonKey;
using Key::RemoteSection;

// One of the six fixed button layouts.
struct Design {
    int id;          // 1 to 6, stored as text under Design
    QString name;    // as the learning dialog names it
    int optionIndex; // position of its option in the learning dialog
    int buttonCount; // button ids 0 to buttonCount - 1
    int lastButtonId() const { return buttonCount - 1; }
    QString text() const { return QString::number(id); }
};

const std::array<Design, 6>& Designs();
// The design for a Design value: exactly "1" to "6", else none.
const Design* DesignByText(QStringView text);
const Design* DesignByOption(int optionIndex);

// Button-<button> of Remote-<remote>, "" when missing.
QString GetButtonFunc(SettingsStore& settings, QStringView remoteId, QStringView buttonId);

// The function names on all buttons of a remote's design, "" where a button
// has none; empty when the remote's Design is not one of the six.
std::vector<QString> ReadRemoteButtons(SettingsStore& settings, int remoteId);

// True when the text holds one of " * / : < > ? \ |, which a device or
// function name must not, since the two name a file.
bool HasBadFileChar(QStringView text);

// The point size of a button caption by its CP932 length: up to 6 bytes 8 pt,
// 7 to 9 bytes 6 pt, more 5 pt.
int FitLabel(QStringView functionName);

// Tira/Testmode (also spelt TestMode: one key) is "1".
bool IsTestMode(SettingsStore& settings);

// The three fixed devices that stand in for the registry in test mode.
struct TestModeDevice {
    int id;
    QString name;
    int design;
    std::vector<std::pair<int, QString>> functions; // button id, function
    QString function(int buttonId) const;
};
const std::array<TestModeDevice, 3>& TestModeDevices();

// The device list of the main window: names in id order (1 to 100, gaps kept
// out), each with its id; in test mode the three fixed devices, without id.
struct DeviceListItem {
    QString name;
    std::optional<int> id;
};
struct DeviceList {
    std::vector<DeviceListItem> items;
    QString shownText; // what the closed list shows before a choice
};
DeviceList FillDevices(SettingsStore& settings);

// Where a new remote goes: the first free Remote-<i> of 1 to 1000, and the one
// that already holds a device of the same name (0 when none).
struct RemoteSlot {
    int freeSlot = 0;
    int existingSlot = 0;
    int slot() const { return existingSlot ? existingSlot : freeSlot; }
};
RemoteSlot FindRemoteSlot(SettingsStore& settings, const QString& deviceName);

// Changes to setting.ini or the signal files: the text differs whenever one
// of them was written since (size, time and inode of each).
QByteArray RegistryStamp(const SettingsStore& settings, const ProgramFolder& folder);
