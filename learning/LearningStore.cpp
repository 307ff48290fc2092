#include "learning/LearningStore.h"

#include "core/AtomicFile.h"
#include "core/BoundedRead.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "remotes/Registry.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcLearning, "kestrava.learning")

void CopyTempToStore(const ProgramFolder& folder, const LearningSession& session,
                     const QString& deviceName, SettingsStore& settings, int slot) {
    const auto& list = session.signalList();
    for (int n = 1; n <= int(list.size()); ++n) {
        const LearningSession::Signal& s = list[size_t(n - 1)];
        if (s.function.isEmpty())
            continue;
        const BoundedRead tmp = ReadBounded(session.TempPath(n), SignalFileSize);
        if (!tmp.ok()) {
            qCWarning(lcLearning).noquote()
                << (tmp.result == BoundedRead::TooLarge ? "too large for a signal:" : "missing")
                << session.TempPath(n);
            continue;
        }
        const QByteArray& bytes = tmp.bytes;
        QString error;
        if (!WriteFileAtomically(SignalFilePath(folder, deviceName, s.function), bytes, 0644,
                                 &error))
            qCWarning(lcLearning).noquote() << error;
        settings.Write(Key::RemoteButton(slot, s.button), s.function);
    }
}

void RemoveFiles(const QStringList& paths) {
    for (const QString& path : paths)
        if (!QFile::remove(path))
            qCWarning(lcLearning).noquote() << "cannot delete" << path;
}
} // namespace

QString LearningSession::TempPath(int n) const {
    return folder_.path(QString::number(n) + u".tmp"_s);
}

QString LearnedNameProblem(const QString& name) {
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

void LearningSession::RemoveTempFiles(const ProgramFolder& folder) {
    QDir dir(folder.root());
    for (const QString& name : dir.entryList({u"*.tmp"_s}, QDir::Files | QDir::Hidden))
        dir.remove(name);
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

void StoreLearnedRemote(const ProgramFolder& folder, SettingsStore& settings,
                        const RemoteSlot& slot, const QString& deviceName, int design,
                        const LearningSession& session) {
    QDir().mkpath(folder.path(u"IRSignals"));
    // Files left under this name from earlier go too, so the remote holds
    // exactly what was learned now.
    RemoveFiles(DeviceSignalFiles(folder, settings, deviceName));
    if (slot.existingSlot)
        settings.DeleteIniSection(RemoteSection(slot.existingSlot));
    settings.Write(Key::RemoteName(slot.slot()), deviceName);
    settings.Write(Key::RemoteDesign(slot.slot()), QString::number(design));
    CopyTempToStore(folder, session, deviceName, settings, slot.slot());
}

void StoreRemoteEdit(const ProgramFolder& folder, SettingsStore& settings, int slot,
                     const QString& deviceName, const std::vector<DeletedFunction>& deleted,
                     const LearningSession& session) {
    QDir().mkpath(folder.path(u"IRSignals"));
    for (const DeletedFunction& d : deleted) {
        QFile::remove(SignalFilePath(folder, deviceName, d.function));
        settings.Write(Key::RemoteButton(slot, d.button), u""_s);
    }
    CopyTempToStore(folder, session, deviceName, settings, slot);
}

void DeleteRemote(const ProgramFolder& folder, SettingsStore& settings, int slot,
                  const QString& deviceName) {
    // The files first: the section tells which other devices to spare.
    RemoveFiles(DeviceSignalFiles(folder, settings, deviceName));
    settings.DeleteIniSection(RemoteSection(slot));
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
