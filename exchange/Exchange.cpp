#include "exchange/Exchange.h"

#include "core/AtomicFile.h"
#include "core/BoundedRead.h"
#include "core/NameText.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "infrared/SignalStore.h"
#include "learning/LearningStore.h"
#include "remotes/Registry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSet>
#include <QStringDecoder>

#include <zip.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

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
    QString text = u"Device="_s + device + u"\r\n"_s;
    text += u"Design="_s + settings.Read(Key::RemoteDesign(slot)) + u"\r\n"_s;
    for (int k = 0; k < ExportedButtons; ++k) {
        const QString function = settings.Read(Key::RemoteButton(slot, k));
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
    if (HasControlOrBrokenChar(name))
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

// Where the entries of an archive go once its directory has been checked.
class EntrySink {
public:
    virtual ~EntrySink() = default;
    // Each returns why the entry cannot be kept, or nothing.
    virtual QString begin(const QString& name) = 0;
    virtual QString write(QByteArrayView piece) = 0;
    virtual QString end() = 0;
};

// Into the work folder, one file per entry. Plain system calls: a full disk
// shows as a short write, which QFile reports without a reason.
class FolderSink final : public EntrySink {
public:
    explicit FolderSink(QString folder) : folder_(std::move(folder)) {}
    ~FolderSink() override { close(); }
    QString begin(const QString& name) override {
        name_ = name;
        fd_ = ::open(QFile::encodeName(QDir(folder_).filePath(name)).constData(),
                     O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
        return fd_ < 0 ? failed(errno) : QString();
    }
    QString write(QByteArrayView piece) override {
        for (const char* p = piece.data(); p < piece.data() + piece.size();) {
            const ssize_t n = ::write(fd_, p, size_t(piece.data() + piece.size() - p));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return failed(n < 0 ? errno : ENOSPC);
            p += n;
        }
        return {};
    }
    QString end() override { return close() ? QString() : failed(errno); }

private:
    bool close() { return fd_ < 0 || ::close(std::exchange(fd_, -1)) == 0; }
    QString failed(int err) {
        close();
        return u"cannot unpack \"%1\": %2"_s.arg(name_, QString::fromLocal8Bit(std::strerror(err)));
    }
    QString folder_, name_;
    int fd_ = -1;
};

// Reads every entry through, for the checks alone.
class NullSink final : public EntrySink {
public:
    QString begin(const QString&) override { return {}; }
    QString write(QByteArrayView) override { return {}; }
    QString end() override { return {}; }
};

using ArchivePtr = std::unique_ptr<zip_t, decltype(&zip_discard)>;

// Checks the whole archive, then hands its entries to sink and keeps exp.txt
// in exp. Sizes are counted as the data comes out, since a header may claim
// less than the data holds. Returns why the archive is refused, or nothing.
QString Unpack(zip_t* opened, EntrySink& sink, QByteArray* exp) {
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
        const bool isExp = name.compare(ExpName, Qt::CaseInsensitive) == 0;
        zip_file_t* entry = zip_fopen_index(opened, zip_uint64_t(i), 0);
        if (!entry)
            return u"damaged entry \"%1\" (%2)"_s.arg(name,
                                                      QString::fromLocal8Bit(zip_strerror(opened)));
        std::unique_ptr<zip_file_t, decltype(&zip_fclose)> closer(entry, zip_fclose);
        if (QString why = sink.begin(name); !why.isEmpty())
            return why;
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
            if (QString why = sink.write(QByteArrayView(buffer, got)); !why.isEmpty())
                return why;
            if (isExp)
                exp->append(buffer, got);
        }
        if (zip_uint64_t(size) != headerSize)
            return u"damaged entry \"%1\" (size differs from its header)"_s.arg(name);
        if (QString why = sink.end(); !why.isEmpty())
            return why;
    }
    return {};
}

bool UsableDeviceName(const QString& device) {
    return !device.trimmed().isEmpty() && !HasBadFileChar(device) &&
           !HasControlOrBrokenChar(device);
}

// What setting.ini can hold of a value, and what a name may be.
QString BadValue(const QString& what, const QString& value) {
    if (ShiftJis::Encode(value).size() > SettingsStore::MaxValueBytes)
        return u"%1 is longer than %2 bytes"_s.arg(what).arg(SettingsStore::MaxValueBytes);
    if (HasControlOrBrokenChar(value))
        return u"%1 holds a control character"_s.arg(what);
    return {};
}

// exp.txt as the classic import reads it: the device after "Device=" on line
// 1, the design after "Design=" on line 2, then up to 66 Button-<k>= lines.
// Lines that are not a button's are passed over; a value that setting.ini
// could not hold, or a design that does not exist, refuses the archive.
QString ReadExp(const QByteArray& bytes, ArchiveDescription* exp) {
    QStringList lines = ShiftJis::Decode(bytes).split(u'\n');
    for (QString& line : lines)
        if (line.endsWith(u'\r'))
            line.chop(1);
    exp->device = ShiftJis::RoundTrip(lines[0].mid(7)); // after "Device="
    if (QString why = BadValue(u"the device name"_s, exp->device); !why.isEmpty())
        return why;
    if (!UsableDeviceName(exp->device))
        return u"exp.txt names no usable device"_s;
    exp->design = lines.value(1).mid(7); // after "Design="
    if (exp->design.size() != 1 || exp->design[0] < u'1' || exp->design[0] > u'6')
        return u"design \"%1\" is not 1 to 6"_s.arg(exp->design.left(20));
    for (const QString& line : lines.mid(2, ExportedButtons)) {
        const qsizetype eq = line.indexOf(u'=');
        if (eq < 0 || !line.startsWith(u"Button-"_s, Qt::CaseInsensitive))
            continue;
        // Only button keys: an archive does not get to rename the remote.
        bool number = false;
        const int k = line.mid(7, eq - 7).toInt(&number);
        if (!number || k < 0 || k >= ExportedButtons || ButtonKey(k).size() != eq)
            continue;
        const QString function = line.mid(eq + 1);
        if (QString why = BadValue(ButtonKey(k), function); !why.isEmpty())
            return why;
        exp->buttons.push_back({k, function});
    }
    return {};
}

// The checks every import makes, the archive read into sink.
QString Inspect(zip_t* archive, EntrySink& sink, ArchiveDescription* exp) {
    QByteArray expBytes;
    if (QString why = Unpack(archive, sink, &expBytes); !why.isEmpty())
        return why;
    return ReadExp(expBytes, exp);
}

// Makes path with its missing parents, noting each folder made, parents first.
bool MakePath(const QString& path, QStringList* made) {
    QStringList missing;
    for (QFileInfo info(path); !info.exists() && !info.isRoot();
         info = QFileInfo(info.absolutePath()))
        missing.prepend(info.absoluteFilePath());
    for (const QString& dir : missing) {
        if (!QDir().mkdir(dir))
            return false;
        *made << dir;
    }
    return QFileInfo(path).isDir();
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
        const BoundedRead file = ReadBounded(path, SignalFileSize);
        if (!file.ok()) {
            zip_discard(archive);
            return fail(path + u": "_s +
                        (file.result == BoundedRead::TooLarge ? u"too large for a signal file"_s
                                                              : file.error));
        }
        added =
            added && AddEntry(archive, ShiftJis::Encode(QFileInfo(path).fileName()), file.bytes);
    }
    if (!added || zip_close(archive) != 0) {
        const QString why = QString::fromLocal8Bit(zip_strerror(archive));
        zip_discard(archive);
        return fail(archivePath + u": "_s + why);
    }
    return true;
}

QString CheckArchive(QByteArrayView bytes, ArchiveDescription* description) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source =
        zip_source_buffer_create(bytes.data(), zip_uint64_t(bytes.size()), 0, &error);
    zip_t* opened =
        source ? zip_open_from_source(source, ZIP_RDONLY | ZIP_CHECKCONS, &error) : nullptr;
    if (!opened) {
        zip_source_free(source);
        const QString why = u"not a readable archive (%1)"_s.arg(
            QString::fromLocal8Bit(zip_error_strerror(&error)));
        zip_error_fini(&error);
        return why;
    }
    zip_error_fini(&error);
    ArchivePtr archive(opened, zip_discard);
    NullSink sink;
    ArchiveDescription ignored;
    return Inspect(opened, sink, description ? description : &ignored);
}

ImportResult ImportArchive(const ProgramFolder& folder, SettingsStore& settings,
                           const QString& archivePath, bool overwrite) {
    ImportResult result;
    // Nothing is merged into a registry that cannot be read.
    if (settings.Unreadable()) {
        result.reason = u"setting.ini cannot be read"_s;
        return result;
    }
    int code = 0;
    zip_t* opened =
        zip_open(QFile::encodeName(archivePath).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &code);
    if (!opened) {
        result.reason = u"not a readable archive (%1)"_s.arg(ZipErrorText(code));
        return result;
    }
    ArchivePtr archive(opened, zip_discard);

    // The work folder, and the program folder itself when it is new, are made
    // for the archive: a refused one takes away what was made for it.
    const QString work = folder.path(u"unzip");
    QStringList made;
    auto finish = [&](ImportResult::Outcome outcome, const QString& reason = {}) {
        EmptyFolder(work);
        if (outcome == ImportResult::Refused)
            for (auto dir = made.crbegin(); dir != made.crend(); ++dir)
                QDir().rmdir(*dir);
        result.outcome = outcome;
        result.reason = reason;
        return result;
    };
    if (!MakePath(work, &made))
        return finish(ImportResult::Refused, u"cannot create %1"_s.arg(work));
    EmptyFolder(work);
    FolderSink sink(work);
    ArchiveDescription exp;
    if (QString why = Inspect(opened, sink, &exp); !why.isEmpty())
        return finish(ImportResult::Refused, why);
    archive.reset();
    result.device = exp.device;

    int found = 0, vacant = 0;
    for (int i = 1; i <= MaxListedRemoteId; ++i) {
        const QString name = settings.Read(Key::RemoteName(i));
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

    // The signal files first: should the disk be full, the registry still
    // holds the remote as it was, and no new one without its signals.
    if (!MakePath(folder.path(u"IRSignals"), &made))
        return finish(ImportResult::Refused, u"cannot create %1"_s.arg(folder.path(u"IRSignals")));
    const QString prefix = SignalFilePrefix(result.device);
    const OwnSignalFiles own(settings, result.device);
    const QStringList before = DeviceSignalFiles(folder, settings, result.device);
    QStringList written;
    QDir dir(work);
    for (const QString& name : dir.entryList(QDir::Files | QDir::Hidden, QDir::Name)) {
        if (!own.Owns(name))
            continue;
        const QString function = ShiftJis::RoundTrip(name).mid(prefix.size()).chopped(4);
        const QString target = SignalFilePath(folder, result.device, function);
        QString error;
        // Unpacked by us, within the archive's own limit.
        const BoundedRead in = ReadBounded(dir.filePath(name), MaxArchiveBytes);
        if (!in.ok())
            error = dir.filePath(name) + u": "_s +
                    (in.result == BoundedRead::TooLarge ? u"too large"_s : in.error);
        else if (WriteFileAtomically(target, in.bytes, 0644, &error)) {
            written << target;
            continue;
        }
        for (const QString& path : written)
            if (!before.contains(path))
                QFile::remove(path);
        return finish(ImportResult::Refused, u"cannot copy a signal file: "_s + error);
    }
    // Then the registry in one write, the old remote's section with it; when
    // that fails, the copied signals go again.
    std::vector<std::pair<SettingKey, QString>> values{{Key::RemoteName(slot), result.device},
                                                       {Key::RemoteDesign(slot), exp.design}};
    for (const auto& [k, function] : exp.buttons)
        values.push_back({Key::RemoteButton(slot, k), function});
    if (!settings.WriteAll(values, found ? RemoteSection(found) : QString())) {
        for (const QString& path : written)
            if (!before.contains(path))
                QFile::remove(path);
        return finish(ImportResult::Refused, u"setting.ini cannot be written"_s);
    }
    // Old signals the archive does not have go with the old remote.
    for (const QString& path : before)
        if (!written.contains(path) && !QFile::remove(path))
            qCWarning(lcExchange).noquote() << "cannot delete" << path;
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
