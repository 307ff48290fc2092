#include "exchange/Exchange.h"

#include "core/AtomicFile.h"
#include "core/ProgramFolder.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "infrared/Learning.h"
#include "infrared/SignalStore.h"
#include "remotes/Registry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSet>
#include <QStringDecoder>

#include <zip.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcExchange, "kestrava.exchange")

const QString ExpName = u"exp.txt"_s;
constexpr int ExportedButtons = 66; // no design has more

QString ZipErrorText(int code) {
    zip_error_t error;
    zip_error_init_with_code(&error, code);
    QString text = QString::fromLocal8Bit(zip_error_strerror(&error));
    zip_error_fini(&error);
    return text;
}

QByteArray ExpText(SettingsStore& settings, const QString& device, int slot) {
    const QString section = RemoteSection(slot);
    QString text = u"Device="_s + device + u"\r\n"_s;
    text += u"Design="_s + settings.ReadIni(section, u"Design") + u"\r\n"_s;
    for (int k = 0; k < ExportedButtons; ++k) {
        const QString function = settings.ReadIni(section, ButtonKey(k));
        if (!function.isEmpty())
            text += ButtonKey(k) + u'=' + function + u"\r\n"_s;
    }
    return ShiftJis::Encode(text);
}

// Adds a copy of data under a name given in CP932 bytes, without the UTF-8 flag.
bool AddEntry(zip_t* archive, const QByteArray& name, const QByteArray& data) {
    void* copy = std::malloc(size_t(std::max<qsizetype>(data.size(), 1)));
    if (!copy)
        return false;
    std::memcpy(copy, data.constData(), size_t(data.size()));
    zip_source_t* source = zip_source_buffer(archive, copy, zip_uint64_t(data.size()), 1);
    if (!source) {
        std::free(copy);
        return false;
    }
    if (zip_file_add(archive, name.constData(), source, ZIP_FL_ENC_CP437 | ZIP_FL_OVERWRITE) < 0) {
        zip_source_free(source);
        return false;
    }
    return true;
}

// Windows tools write names in CP932 without a flag; Linux tools write UTF-8,
// flagged or not. CP932 names that are also valid UTF-8 are rare enough.
QString EntryName(zip_t* archive, zip_uint64_t index) {
    const char* raw = zip_get_name(archive, index, ZIP_FL_ENC_RAW);
    if (!raw)
        return {};
    const QByteArray bytes(raw);
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString name = utf8(bytes);
    return utf8.hasError() ? ShiftJis::Decode(bytes) : name;
}

bool HasControlChar(const QString& text) {
    return std::any_of(text.begin(), text.end(),
                       [](QChar c) { return c.unicode() < 0x20 || c.unicode() == 0x7f; });
}

// Why an entry name may not be unpacked; empty when it may. Entries are flat:
// anything that could name another folder is refused.
QString BadEntryName(const QString& name) {
    if (name.isEmpty())
        return u"an entry has no name"_s;
    if (name.contains(u'/') || name.contains(u'\\'))
        return u"entry \"%1\" names a folder"_s.arg(name);
    if (name.contains(u".."_s))
        return u"entry \"%1\" holds \"..\""_s.arg(name);
    if (name.contains(u':'))
        return u"entry \"%1\" names a drive"_s.arg(name);
    if (HasControlChar(name))
        return u"entry \"%1\" holds a control character"_s.arg(name);
    return {};
}

void EmptyFolder(const QString& path) {
    QDir dir(path);
    for (const QFileInfo& info :
         dir.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        const bool removed = info.isDir() && !info.isSymLink()
                                 ? QDir(info.filePath()).removeRecursively()
                                 : QFile::remove(info.filePath());
        if (!removed)
            qCWarning(lcExchange).noquote() << "cannot delete" << info.filePath();
    }
}

// Checks the whole archive, then unpacks it into work. Sizes are counted as
// the data comes out, since a header may claim less than the data holds.
// Returns why the archive is refused, or nothing.
QString Unpack(const QString& archivePath, const QString& work) {
    int code = 0;
    zip_t* opened =
        zip_open(QFile::encodeName(archivePath).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &code);
    if (!opened)
        return u"not a readable archive (%1)"_s.arg(ZipErrorText(code));
    std::unique_ptr<zip_t, decltype(&zip_discard)> archive(opened, zip_discard);
    const zip_int64_t count = zip_get_num_entries(opened, 0);
    if (count > MaxArchiveEntries)
        return u"more than %1 entries"_s.arg(MaxArchiveEntries);

    std::vector<std::pair<QString, zip_uint64_t>> entries; // name, size in its header
    QSet<QString> seen;
    qint64 stated = 0;
    for (zip_int64_t i = 0; i < count; ++i) {
        zip_stat_t st;
        if (zip_stat_index(opened, zip_uint64_t(i), 0, &st) != 0)
            return u"damaged archive (%1)"_s.arg(QString::fromLocal8Bit(zip_strerror(opened)));
        const QString name = EntryName(opened, zip_uint64_t(i));
        if (QString why = BadEntryName(name); !why.isEmpty())
            return why;
        if ((st.valid & ZIP_STAT_ENCRYPTION_METHOD) && st.encryption_method != ZIP_EM_NONE)
            return u"entry \"%1\" is encrypted"_s.arg(name);
        if (!(st.valid & ZIP_STAT_SIZE))
            return u"damaged archive (entry \"%1\" has no size)"_s.arg(name);
        if (st.size > zip_uint64_t(MaxEntryBytes))
            return u"entry \"%1\" is larger than 1 MiB"_s.arg(name);
        stated += qint64(st.size);
        if (stated > MaxArchiveBytes)
            return u"more than 64 MiB in all"_s;
        // Two entries of one name (in any case, as Windows sees names) would
        // leave it to the order which one lands.
        if (seen.contains(name.toCaseFolded()))
            return u"entry \"%1\" appears twice"_s.arg(name);
        seen.insert(name.toCaseFolded());
        entries.push_back({name, st.size});
    }
    if (!seen.contains(ExpName))
        return u"no exp.txt"_s;

    qint64 total = 0;
    for (zip_int64_t i = 0; i < count; ++i) {
        const auto& [name, headerSize] = entries[size_t(i)];
        zip_file_t* entry = zip_fopen_index(opened, zip_uint64_t(i), 0);
        if (!entry)
            return u"damaged entry \"%1\" (%2)"_s.arg(name,
                                                      QString::fromLocal8Bit(zip_strerror(opened)));
        std::unique_ptr<zip_file_t, decltype(&zip_fclose)> closer(entry, zip_fclose);
        QFile out(QDir(work).filePath(name));
        if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return u"cannot unpack \"%1\": %2"_s.arg(name, out.errorString());
        qint64 size = 0;
        char buffer[64 * 1024];
        for (;;) {
            const zip_int64_t got = zip_fread(entry, buffer, sizeof buffer);
            if (got < 0)
                return u"damaged entry \"%1\" (%2)"_s.arg(
                    name, QString::fromLocal8Bit(zip_error_strerror(zip_file_get_error(entry))));
            if (got == 0)
                break;
            size += got;
            total += got;
            if (size > MaxEntryBytes)
                return u"entry \"%1\" unpacks to more than 1 MiB"_s.arg(name);
            if (total > MaxArchiveBytes)
                return u"more than 64 MiB in all once unpacked"_s;
            if (out.write(buffer, got) != got)
                return u"cannot unpack \"%1\": %2"_s.arg(name, out.errorString());
        }
        if (zip_uint64_t(size) != headerSize)
            return u"damaged entry \"%1\" (size differs from its header)"_s.arg(name);
    }
    return {};
}

struct ExpFile {
    QString device;
    QString design;
    QStringList lines; // the Button-<k> lines
};

ExpFile ReadExp(const QString& path) {
    QFile file(path);
    ExpFile exp;
    if (!file.open(QIODevice::ReadOnly))
        return exp;
    QStringList lines = ShiftJis::Decode(file.readAll()).split(u'\n');
    for (QString& line : lines)
        if (line.endsWith(u'\r'))
            line.chop(1);
    if (!lines.isEmpty())
        exp.device = lines[0].mid(7); // after "Device="
    if (lines.size() > 1 && !lines[1].isEmpty())
        exp.design = lines[1].right(1);
    exp.lines = lines.mid(2, ExportedButtons);
    return exp;
}

bool UsableDeviceName(const QString& device) {
    return !device.trimmed().isEmpty() && !HasBadFileChar(device) && !HasControlChar(device);
}

} // namespace

QString ArchivePath(const QString& folder, const QString& device) {
    return QDir(folder).filePath(device + u".kxp"_s);
}

bool ExportDevice(const ProgramFolder& folder, SettingsStore& settings, const QString& device,
                  int slot, const QString& archivePath, QString* error) {
    auto fail = [error](const QString& why) {
        qCWarning(lcExchange).noquote() << why;
        if (error)
            *error = why;
        return false;
    };
    int code = 0;
    zip_t* archive =
        zip_open(QFile::encodeName(archivePath).constData(), ZIP_CREATE | ZIP_TRUNCATE, &code);
    if (!archive)
        return fail(archivePath + u": "_s + ZipErrorText(code));
    bool added = AddEntry(archive, ShiftJis::Encode(ExpName), ExpText(settings, device, slot));
    for (const QString& path : DeviceSignalFiles(folder, settings, device)) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            zip_discard(archive);
            return fail(path + u": "_s + file.errorString());
        }
        added = added &&
                AddEntry(archive, ShiftJis::Encode(QFileInfo(path).fileName()), file.readAll());
    }
    if (!added || zip_close(archive) != 0) {
        const QString why = QString::fromLocal8Bit(zip_strerror(archive));
        zip_discard(archive);
        return fail(archivePath + u": "_s + why);
    }
    return true;
}

ImportResult ImportArchive(const ProgramFolder& folder, SettingsStore& settings,
                           const QString& archivePath, bool overwrite) {
    const QString work = folder.path(u"unzip");
    QDir().mkpath(work);
    EmptyFolder(work);
    ImportResult result;
    auto finish = [&](ImportResult::Outcome outcome, const QString& reason = {}) {
        EmptyFolder(work);
        result.outcome = outcome;
        result.reason = reason;
        return result;
    };
    // Nothing is merged into a registry that cannot be read.
    if (settings.Unreadable())
        return finish(ImportResult::Refused, u"setting.ini cannot be read"_s);
    if (QString why = Unpack(archivePath, work); !why.isEmpty())
        return finish(ImportResult::Refused, why);

    QString expPath;
    for (const QString& name : QDir(work).entryList(QDir::Files | QDir::Hidden))
        if (name.compare(ExpName, Qt::CaseInsensitive) == 0)
            expPath = QDir(work).filePath(name);
    const ExpFile exp = ReadExp(expPath);
    result.device = ShiftJis::RoundTrip(exp.device);
    if (!UsableDeviceName(result.device))
        return finish(ImportResult::Refused, u"exp.txt names no usable device"_s);

    int found = 0, vacant = 0;
    for (int i = 1; i <= MaxListedRemoteId; ++i) {
        const QString name = settings.ReadIni(RemoteSection(i), u"Device");
        if (name.isEmpty() && !vacant)
            vacant = i;
        else if (name == result.device && !found)
            found = i;
    }
    if (found && !overwrite) {
        result.slot = found;
        return finish(ImportResult::Skipped);
    }
    const int slot = found && (!vacant || found < vacant) ? found : vacant;
    if (!slot)
        return finish(ImportResult::Refused,
                      u"all remote numbers 1 to %1 are taken"_s.arg(MaxListedRemoteId));

    QDir().mkpath(folder.path(u"IRSignals"));
    if (found) {
        for (const QString& path : DeviceSignalFiles(folder, settings, result.device))
            if (!QFile::remove(path))
                qCWarning(lcExchange).noquote() << "cannot delete" << path;
        if (!settings.DeleteIniSection(RemoteSection(found)))
            return finish(ImportResult::Refused, u"setting.ini cannot be written"_s);
    }
    const QString section = RemoteSection(slot);
    settings.WriteIni(section, u"Device", result.device);
    settings.WriteIni(section, u"Design", exp.design);
    for (const QString& line : exp.lines) {
        const qsizetype eq = line.indexOf(u'=');
        // Only button keys: an archive does not get to rename the remote.
        if (eq > 0 && line.startsWith(u"Button-"_s, Qt::CaseInsensitive))
            settings.WriteIni(section, line.left(eq), line.mid(eq + 1));
    }

    const QString prefix = SignalFilePrefix(result.device);
    const OwnSignalFiles own(settings, result.device);
    QDir dir(work);
    for (const QString& name : dir.entryList(QDir::Files | QDir::Hidden, QDir::Name)) {
        if (!own.Owns(name))
            continue;
        QFile in(dir.filePath(name));
        const QString function = ShiftJis::RoundTrip(name).mid(prefix.size()).chopped(4);
        QString error;
        if (!in.open(QIODevice::ReadOnly) ||
            !WriteFileAtomically(SignalFilePath(folder, result.device, function), in.readAll(),
                                 0644, &error))
            qCWarning(lcExchange).noquote() << "cannot copy" << name << error;
    }
    result.slot = slot;
    return finish(ImportResult::Imported);
}

QString DescribeImport(const QString& archivePath, const ImportResult& result) {
    switch (result.outcome) {
    case ImportResult::Imported:
        return u"%1: imported %2 as remote %3"_s.arg(archivePath, result.device).arg(result.slot);
    case ImportResult::Skipped:
        return u"%1: skipped, %2 is already remote %3 (--overwrite replaces it)"_s
            .arg(archivePath, result.device)
            .arg(result.slot);
    case ImportResult::Refused:
        break;
    }
    return u"%1: refused: %2"_s.arg(archivePath, result.reason);
}
