// setting.ini as found on disk: any bytes read back, and a write keeps every
// value it does not touch.
#include "core/Settings.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdlib>

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // In memory where there is a tmpfs: every save syncs its file.
    static QTemporaryDir dir(QDir(u"/dev/shm"_s).exists()
                                 ? u"/dev/shm/kestrava-fuzz-XXXXXX"_s
                                 : QDir::tempPath() + u"/kestrava-fuzz-XXXXXX"_s);
    const QString path = dir.filePath(u"setting.ini"_s);
    {
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            abort();
        f.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    const std::pair<QString, QString> keys[] = {{u"Options"_s, u"Internet"_s},
                                                {u"WebServer"_s, u"Port"_s},
                                                {u"Remote"_s, u"Dev1"_s},
                                                {u"a"_s, u"b"_s}};
    QString before[std::size(keys)];
    {
        SettingsStore store(path);
        for (size_t i = 0; i < std::size(keys); ++i)
            before[i] = store.ReadIni(keys[i].first, keys[i].second);
        Val(before[1]);
        store.WriteIni(u"Fuzz", u"Key", u"value");
    }
    SettingsStore again(path);
    if (again.ReadIni(u"Fuzz", u"Key") != u"value"_s)
        abort();
    for (size_t i = 0; i < std::size(keys); ++i)
        if (again.ReadIni(keys[i].first, keys[i].second) != before[i])
            abort();
    again.DeleteIniSection(u"Fuzz");
    return 0;
}
