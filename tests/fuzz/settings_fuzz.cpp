// setting.ini as found on disk: any bytes read back, and a write keeps every
// value it does not touch.
#include "core/Settings.h"

#include <cstdlib>

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::pair<QStringView, QStringView> keys[] = {
        {u"Options", u"Internet"}, {u"WebServer", u"Port"}, {u"Remote", u"Dev1"}, {u"a", u"b"}};
    IniText text(QByteArrayView(data, qsizetype(size)));
    QString before[std::size(keys)];
    for (size_t i = 0; i < std::size(keys); ++i)
        before[i] = text.value(keys[i].first, keys[i].second);
    Val(before[1]);
    text.setValue(u"Fuzz", u"Key", u"value");

    IniText again(text.bytes());
    if (again.value(u"Fuzz", u"Key") != u"value"_s)
        abort();
    for (size_t i = 0; i < std::size(keys); ++i)
        if (again.value(keys[i].first, keys[i].second) != before[i])
            abort();
    again.removeSection(u"Fuzz");
    return 0;
}
