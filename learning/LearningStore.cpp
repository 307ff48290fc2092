#include "learning/LearningStore.h"

#include "core/AtomicFile.h"
#include "core/BoundedRead.h"
#include "core/NameText.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "remotes/Registry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QRegularExpression>

#include <cerrno>
#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcLearning, "kestrava.learning")

void RemoveFiles(const QStringList& paths) {
    for (const QString& path : paths)
        if (!QFile::remove(path))
            qCWarning(lcLearning).noquote() << "cannot delete" << path;
}

// A second name for the file as it is, so that its old contents can come
// back after it was replaced, without needing room on the disk. Named as the
// temporaries that a start removes when a crash left them. "" when the file
// system has no hard links.
QString KeepOld(const QString& path) {
    static quint32 counter = 0;
    const QByteArray from = QFile::encodeName(path);
    for (int tries = 0; tries < 100; ++tries) {
        const QByteArray to =
            from + '.' + QByteArray::number(getpid()) + '.' +
            QByteArray::number(++counter % 2176782336u, 36).rightJustified(6, '0') + ".tmp";
        if (::link(from.constData(), to.constData()) == 0)
            return QFile::decodeName(to);
        if (errno != EEXIST)
            break;
    }
    return {};
}
} // namespace

QString LearningSession::TempPath(int n) const {
    return folder_.path(QString::number(n) + u".tmp"_s);
}

QString LearnedNameProblem(const QString& name) {
    if (HasControlOrBrokenChar(name))
        return u"名前には制御文字（タブや改行など）や壊れた文字は使えません。"_s;
    if (HasBadFileChar(name))
        return u"文字列には \"* / : < > ? \\ | は使えません。"_s;
    const QString lost = ShiftJis::Unmappable(name);
    if (lost.isEmpty())
        return {};
    return u"「%1」は使えません。機器名と機能名には、Shift_JIS で表せる文字だけが使えます"
           u"（アクセント付きの文字や絵文字などは使えません）。"_s.arg(lost);
}

IrCode TidyCapture(SignalImage& image, int& length, bool clean) {
    if (length <= 0 || length > SignalFileSize)
        return {};
    const auto blob =
        IrBlob::decode(QByteArrayView(reinterpret_cast<const char*>(image.data()), length));
    if (!blob)
        return {};
    const IrCode code = DecodeSignal(TimingFromBlob(*blob));
    if (!code.decoded())
        return code;
    std::optional<IrBlob> tidy;
    if (clean) {
        if (const auto timing = EncodeSignal(code))
            tidy = BlobFromTiming(*timing);
    } else if (blob->pulsePeriodNs == 0 && ProtocolCarrierHz(code.protocol) > 0) {
        tidy = *blob;
        tidy->pulsePeriodNs = 1000000000 / ProtocolCarrierHz(code.protocol);
    }
    if (!tidy)
        return code;
    const QByteArray bytes = tidy->encode();
    if (bytes.size() > SignalFileSize - 2) // the length trailer needs its two bytes
        return code;
    image.fill(0);
    std::copy(bytes.begin(), bytes.end(), image.begin());
    length = int(bytes.size());
    return code;
}

int LearningSession::Add(const SignalImage& image, const QString& function, int button,
                         QString* error) {
    if (full()) {
        if (error)
            *error = u"session full"_s;
        return 0;
    }
    const int n = count() + 1;
    if (!WriteFileAtomically(
            TempPath(n),
            QByteArrayView(reinterpret_cast<const char*>(image.data()), qsizetype(image.size())),
            0644, error))
        return 0;
    signals_.push_back({function, button});
    return n;
}

void LearningSession::Remove(int n) {
    if (n >= 1 && n <= count())
        signals_[size_t(n - 1)].function.clear();
}

int LearningSession::RemoveTempFiles(const ProgramFolder& folder) {
    static const QRegularExpression numbered(u"^[0-9]+\\.tmp$"_s);
    const QString tested = QFileInfo(TestSignalPath(folder)).fileName();
    QDir dir(folder.root());
    int removed = 0;
    for (const QString& name : dir.entryList({u"*.tmp"_s}, QDir::Files | QDir::Hidden))
        if ((numbered.match(name).hasMatch() || name == tested) && dir.remove(name))
            ++removed;
    return removed;
}

OwnSignalFiles::OwnSignalFiles(SettingsStore& settings, const QString& deviceName)
    : prefix_(SignalFilePrefix(deviceName)) {
    // Another device named "<device>-<more>" owns the files that start with
    // its own name; a wildcard on this name alone would take them too.
    for (int i = 1; i <= MaxRemoteId; ++i) {
        const QString other = SignalFilePrefix(settings.Read(Key::RemoteName(i)));
        if (other != prefix_ && other.startsWith(prefix_))
            others_ << other;
    }
}

bool OwnSignalFiles::Owns(const QString& fileName) const {
    // Folded too, so that files an older version named from the typed
    // text ("AV〜-…" for the remote "AV～") go with their remote.
    const QString name = ShiftJis::RoundTrip(fileName);
    if (!name.startsWith(prefix_) || !name.endsWith(u".bin"_s, Qt::CaseInsensitive))
        return false;
    for (const QString& o : others_)
        if (name.startsWith(o))
            return false;
    return true;
}

QStringList DeviceSignalFiles(const ProgramFolder& folder, SettingsStore& settings,
                              const QString& deviceName) {
    const OwnSignalFiles own(settings, deviceName);
    QDir dir(folder.path(u"IRSignals"));
    QStringList files;
    for (const QString& file : dir.entryList(QDir::Files | QDir::Hidden, QDir::Name))
        if (own.Owns(file))
            files << dir.filePath(file);
    return files;
}

bool StoreRemote(const ProgramFolder& folder, SettingsStore& settings, const RemoteChange& change,
                 QString* error) {
    QDir().mkpath(folder.path(u"IRSignals"));
    // Files to delete once the registry no longer names them.
    QStringList old;
    if (change.replace)
        old = DeviceSignalFiles(folder, settings, change.device);
    for (const DeletedFunction& d : change.deleted)
        old << SignalFilePath(folder, change.device, d.function);
    QStringList made, kept;
    std::vector<std::pair<QString, QString>> replaced; // the file, its old contents' name
    const auto undo = [&](const QString& why) {
        RemoveFiles(made);
        for (const auto& [path, before] : replaced)
            if (::rename(QFile::encodeName(before).constData(),
                         QFile::encodeName(path).constData()))
                qCWarning(lcLearning).noquote() << "cannot restore" << path;
        qCWarning(lcLearning).noquote() << "not stored:" << why;
        if (error)
            *error = why;
        return false;
    };
    for (const StoredKey& k : change.keys) {
        // A later key of the same name writes over the earlier one's file.
        const QString path = SignalFilePath(folder, change.device, k.function);
        const bool first = !kept.contains(path), isNew = first && !QFileInfo::exists(path);
        if (first && !isNew)
            if (const QString before = KeepOld(path); !before.isEmpty())
                replaced.push_back({path, before});
        kept << path;
        QString why;
        // New files are flushed together below: one flush instead of one a
        // key makes a large import take seconds, not minutes. A file that
        // replaces another is flushed before it takes the old one's name.
        if (!WriteFileAtomically(path, k.signal, 0644, &why, !isNew))
            return undo(why);
        if (isNew)
            made << path;
    }
    if (QString why; !made.isEmpty() && !SyncFileSystem(folder.path(u"IRSignals"), &why))
        return undo(why);
    std::vector<std::pair<SettingKey, QString>> values;
    if (change.design) {
        values.push_back({Key::RemoteName(change.slot), change.device});
        values.push_back({Key::RemoteDesign(change.slot), QString::number(change.design)});
    }
    for (const DeletedFunction& d : change.deleted)
        values.push_back({Key::RemoteButton(change.slot, d.button), QString()});
    for (const StoredKey& k : change.keys)
        values.push_back({Key::RemoteButton(change.slot, k.button), k.function});
    if (!settings.WriteAll(values, change.replace ? RemoteSection(change.slot) : QString()))
        return undo(settings.path() + u": cannot be written"_s);
    for (const auto& [path, before] : replaced)
        RemoveFiles({before});
    for (const QString& path : old)
        if (!kept.contains(path) && QFileInfo::exists(path))
            RemoveFiles({path});
    return true;
}

namespace {
// The session's signals as keys to store; one whose temporary is gone is left out.
std::vector<StoredKey> KeysOf(const LearningSession& session) {
    std::vector<StoredKey> keys;
    const auto& list = session.signalList();
    for (int n = 1; n <= int(list.size()); ++n) {
        const LearningSession::Signal& s = list[size_t(n - 1)];
        if (s.function.isEmpty())
            continue;
        BoundedRead tmp = ReadBounded(session.TempPath(n), SignalFileSize);
        if (!tmp.ok()) {
            qCWarning(lcLearning).noquote()
                << (tmp.result == BoundedRead::TooLarge ? "too large for a signal:" : "missing")
                << session.TempPath(n);
            continue;
        }
        keys.push_back({s.button, s.function, std::move(tmp.bytes)});
    }
    return keys;
}
} // namespace

bool StoreLearnedRemote(const ProgramFolder& folder, SettingsStore& settings,
                        const RemoteSlot& slot, const QString& deviceName, int design,
                        const LearningSession& session, QString* error) {
    // Files left under this name from earlier go too, so the remote holds
    // exactly what was learned now.
    return StoreRemote(folder, settings,
                       {slot.slot(), deviceName, design, true, {}, KeysOf(session)}, error);
}

bool StoreRemoteEdit(const ProgramFolder& folder, SettingsStore& settings, int slot,
                     const QString& deviceName, const std::vector<DeletedFunction>& deleted,
                     const LearningSession& session, QString* error) {
    return StoreRemote(folder, settings, {slot, deviceName, 0, false, deleted, KeysOf(session)},
                       error);
}

void DeleteRemote(const ProgramFolder& folder, SettingsStore& settings, int slot,
                  const QString& deviceName) {
    // The section first, so that no key is left naming a deleted file; the
    // files are chosen before, while the section tells which devices to spare.
    const QStringList files = DeviceSignalFiles(folder, settings, deviceName);
    if (settings.DeleteIniSection(RemoteSection(slot)))
        RemoveFiles(files);
}

std::vector<EditableRemote> EditableRemotes(SettingsStore& settings) {
    std::vector<EditableRemote> remotes;
    for (int i = 1; i <= MaxListedRemoteId; ++i) {
        QString name = settings.Read(Key::RemoteName(i));
        if (!name.isEmpty())
            remotes.push_back({i, name});
    }
    return remotes;
}
