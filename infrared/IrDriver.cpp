#include "infrared/IrDriver.h"

#include "core/ProgramFolder.h"
#include "infrared/LircDriver.h"
#include "infrared/SimDriver.h"
#include "infrared/TiraSerialDriver.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

bool IsLircDevice(const QString& path) {
    QString real = QFileInfo(path).canonicalFilePath();
    return QFileInfo(path).fileName().startsWith(u"lirc") ||
           (!real.isEmpty() &&
            QFileInfo::exists(u"/sys/class/lirc/"_s + QFileInfo(real).fileName()));
}

std::unique_ptr<IrDriver> MakeIrDriver(const QString& target, const ProgramFolder& folder) {
    if (target == u"sim")
        return std::make_unique<SimDriver>(folder.path(u"sim-transmit.log"));
    if (IsLircDevice(target))
        return std::make_unique<LircDriver>(target);
    return std::make_unique<TiraSerialDriver>(target);
}
