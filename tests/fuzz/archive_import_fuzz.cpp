// Feeds any bytes to the checks of an import, in memory: an archive is
// refused or described, never crashes, and what it describes is what
// setting.ini can hold and a remote can be.
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "exchange/Exchange.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ArchiveDescription exp;
    const QString why = CheckArchive(QByteArrayView(data, qsizetype(size)), &exp);
    if (!why.isEmpty())
        return 0;
    auto fits = [](const QString& value) {
        return ShiftJis::Encode(value).size() <= SettingsStore::MaxValueBytes;
    };
    if (exp.device.trimmed().isEmpty() || !fits(exp.device) || exp.design.size() != 1 ||
        exp.design[0] < u'1' || exp.design[0] > u'6' || exp.buttons.size() > 66)
        std::abort();
    for (const auto& [k, function] : exp.buttons)
        if (k < 0 || k > 65 || !fits(function))
            std::abort();
    return 0;
}
