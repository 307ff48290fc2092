#include "infrared/IrDriver.h"

#include "core/ProgramFolder.h"
#include "infrared/LircDriver.h"
#include "infrared/SimDriver.h"
#include "infrared/TiraSerialDriver.h"

std::unique_ptr<IrDriver> MakeIrDriver(const QString& target, const ProgramFolder& folder) {
    if (target == u"sim")
        return std::make_unique<SimDriver>(folder.path(u"sim-transmit.log"));
    if (target.contains(u"lirc"))
        return std::make_unique<LircDriver>(target);
    return std::make_unique<TiraSerialDriver>(target);
}
