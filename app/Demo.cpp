#include "app/Demo.h"

#include "core/ProgramFolder.h"
#include "core/Settings.h"

#include <QFileInfo>

bool PrepareDemoFolder(const ProgramFolder& folder, SettingsStore& settings) {
    if (QFileInfo::exists(folder.settingsPath()))
        return false;
    settings.WriteIni(u"Tira", u"Device", u"sim");
    settings.WriteIni(u"WebServer", u"Port", QString::number(DemoWebPort));
    settings.WriteIni(u"Options", u"Internet", u"0");
    return true;
}
