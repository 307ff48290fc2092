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

const char* IrDriverKind(const QString& target) {
    return target == u"sim" ? "sim" : IsLircDevice(target) ? "lirc" : "tira";
}

std::unique_ptr<IrDriver> MakeIrDriver(const QString& target, const ProgramFolder& folder) {
    const QByteArrayView kind = IrDriverKind(target);
    if (kind == "sim")
        return std::make_unique<SimDriver>(folder.path(u"sim-transmit.log"));
    if (kind == "lirc")
        return std::make_unique<LircDriver>(target);
    return std::make_unique<TiraSerialDriver>(target);
}
