#include "exchange/CodesExchange.h"

#include "core/NameText.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "infrared/IrProtocol.h"
#include "infrared/SignalStore.h"
#include "infrared/formats/IrFormats.h"
#include "learning/LearningStore.h"
#include "remotes/Press.h"
#include "remotes/Registry.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <map>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

struct Key_ {
    QString name;
    SignalImage signal; // the signal file whole
};

const Design* SmallestDesignFor(int keys) {
    const Design* best = nullptr;
    for (const Design& d : Designs())
        if (d.buttonCount >= keys && (!best || d.buttonCount < best->buttonCount))
            best = &d;
    return best ? best : DesignByText(u"6");
}

// Stores one remote's keys; refusals go to result.refused. Gives back the keys
// that found no free button, for the next remote.
std::vector<Key_> ImportRemote(const ProgramFolder& folder, SettingsStore& settings,
                               const QString& name, int askedDesign, const std::vector<Key_>& keys,
                               CodesImportResult& result) {
    const QString device = ShiftJis::RoundTrip(name);
    if (const QString problem = LearnedNameProblem(name); !problem.isEmpty() || name.isEmpty()) {
        result.refused << u"%1: %2"_s.arg(name, name.isEmpty() ? u"no remote name"_s : problem);
        return {};
    }
    // The registry is read key by key below; the file is checked once for them.
    std::optional<SettingsStore::Batch> reading(std::in_place, settings);
    const RemoteSlot where = FindRemoteSlot(settings, device);
    const int slot = where.slot();
    if (slot == 0 || slot > MaxListedRemoteId) {
        result.refused << u"%1: no free remote among 1 to %2; %3 keys left out"_s.arg(name)
                              .arg(MaxListedRemoteId)
                              .arg(keys.size());
        return {};
    }
    // The remote's buttons as they are, then the new keys on the free ones.
    const Design* design = nullptr;
    std::vector<QString> buttons;
    if (where.existingSlot) {
        design = DesignByText(settings.Read(Key::RemoteDesign(slot)));
        if (design)
            buttons = ReadRemoteButtons(settings, slot);
    }
    if (!design) {
        design = askedDesign ? DesignByText(QString::number(askedDesign))
                             : SmallestDesignFor(int(keys.size()));
        buttons.assign(size_t(design->buttonCount), QString());
    }
    CodesImported done{device, slot, design->id};
    std::vector<std::pair<int, const Key_*>> placed;
    std::vector<Key_> left;
    for (const Key_& key : keys) {
        const QString function = ShiftJis::RoundTrip(key.name);
        auto same = std::find(buttons.begin(), buttons.end(), function);
        if (same != buttons.end()) {
            placed.push_back({int(same - buttons.begin()), &key});
            ++done.replaced;
            continue;
        }
        auto free = std::find(buttons.begin(), buttons.end(), QString());
        if (free == buttons.end()) {
            left.push_back(key);
            continue;
        }
        *free = function;
        placed.push_back({int(free - buttons.begin()), &key});
        ++done.added;
    }
    reading.reset();
    if (placed.empty())
        return left;
    RemoteChange change{slot, device, design->id, false, {}, {}};
    for (auto [button, key] : placed)
        change.keys.push_back({button, buttons[size_t(button)],
                               QByteArray(reinterpret_cast<const char*>(key->signal.data()),
                                          qsizetype(key->signal.size()))});
    if (QString error; !StoreRemote(folder, settings, change, &error)) {
        result.error = u"%1: %2"_s.arg(name, error);
        return {};
    }
    result.remotes.push_back(done);
    return left;
}

} // namespace

CodesImportResult ImportCodes(const ProgramFolder& folder, SettingsStore& settings,
                              const CodesImport& request) {
    CodesImportResult result;
    if (request.design != 0 && !DesignByText(QString::number(request.design))) {
        result.error = u"design %1 is not one of 1 to 6"_s.arg(request.design);
        return result;
    }
    if (settings.Unreadable()) {
        result.error = settings.path() + u": cannot be read"_s;
        return result;
    }
    const IrCodeRead read = ReadIrCodePath(request.path);
    if (!read.ok()) {
        result.error = read.error;
        return result;
    }
    result.refused = read.refused;
    if (read.codes.empty()) {
        result.error = request.path + u": no codes in it"_s;
        return result;
    }
    // Keys by remote, in the file's order; names checked as learning checks them.
    std::vector<std::pair<QString, std::vector<Key_>>> remotes;
    std::map<QString, QSet<QString>> takenNames; // by remote, as Shift_JIS keeps them
    const QString fallback = QFileInfo(request.path).completeBaseName();
    for (const NamedSignal& code : read.codes) {
        const QString remote =
            FileNameOf(!request.remote.isEmpty() ? request.remote
                                                 : (code.group.isEmpty() ? fallback : code.group),
                       false);
        auto group = std::find_if(remotes.begin(), remotes.end(),
                                  [&](const auto& r) { return r.first == remote; });
        if (group == remotes.end())
            group = remotes.insert(remotes.end(), {remote, {}});
        std::vector<Key_>& keys = group->second;
        // Names as convert makes file names of them: what a file name cannot
        // hold becomes '_', and a name that comes again gets "-2", "-3".
        const QString mapped = FileNameOf(code.name, false);
        QString why = code.name.isEmpty() ? u"a key without a name"_s : LearnedNameProblem(mapped);
        std::optional<SignalImage> signal;
        if (why.isEmpty())
            signal = SignalImageOf(code.timing, &why);
        if (!why.isEmpty()) {
            result.refused << u"%1: %2"_s.arg(code.name, why);
            continue;
        }
        QSet<QString>& taken = takenNames[remote];
        QString name = mapped;
        for (int n = 2; taken.contains(ShiftJis::RoundTrip(name)); ++n)
            name = mapped + u'-' + QString::number(n);
        taken.insert(ShiftJis::RoundTrip(name));
        if (name != code.name)
            result.renamed << u"%1: stored as %2"_s.arg(code.name, name);
        keys.push_back({name, *signal});
    }
    // A remote past its design's last button goes on as "Name (2)", "Name (3)".
    for (const auto& [name, all] : remotes) {
        std::vector<Key_> keys = all;
        for (int part = 1; !keys.empty() && result.error.isEmpty(); ++part) {
            const QString partName = part == 1 ? name : u"%1 (%2)"_s.arg(name).arg(part);
            const size_t before = keys.size();
            keys = ImportRemote(folder, settings, partName, request.design, keys, result);
            if (part > 1 && !keys.empty() && keys.size() == before) {
                for (const Key_& k : keys)
                    result.refused << u"%1: no free button on %2"_s.arg(k.name, partName);
                break;
            }
        }
        if (!result.error.isEmpty())
            break;
    }
    if (result.remotes.empty() && result.error.isEmpty())
        result.error = request.path + u": none of its keys could be imported"_s;
    return result;
}

QStringList DescribeCodesImport(const QString& path, const CodesImportResult& result) {
    QStringList lines;
    for (const CodesImported& r : result.remotes)
        lines << u"%1: %2 (remote %3, design %4): %5 keys added, %6 replaced"_s.arg(
            path, r.device, QString::number(r.slot), QString::number(r.design),
            QString::number(r.added), QString::number(r.replaced));
    for (const QString& renamed : result.renamed)
        lines << u"%1: %2"_s.arg(path, renamed);
    for (const QString& refused : result.refused)
        lines << u"%1: not imported: %2"_s.arg(path, refused);
    if (!result.error.isEmpty())
        lines << u"%1: not imported: %2"_s.arg(path, result.error);
    return lines;
}

bool ExportCodes(const ProgramFolder& folder, SettingsStore& settings, const QString& dir,
                 const QString& formatName, const QStringList& devices, QStringList* lines) {
    const auto format = IrFormatFromName(formatName);
    if (!format) {
        *lines << u"%1: not a format (flipper, lircd, irdb, pronto, broadlink, json, irctl, "
                  u"globalcache, esphome, tasmota, bin)"_s.arg(formatName);
        return false;
    }
    std::vector<EditableRemote> chosen;
    bool allWell = true;
    const std::vector<EditableRemote> remotes = EditableRemotes(settings);
    for (const QString& name : devices) {
        auto it = std::find_if(remotes.begin(), remotes.end(), [&](const EditableRemote& r) {
            return r.name == ShiftJis::RoundTrip(name);
        });
        if (it == remotes.end()) {
            *lines << name + u": no such remote"_s;
            allWell = false;
        } else {
            chosen.push_back(*it);
        }
    }
    if (devices.isEmpty())
        chosen = remotes;
    QDir().mkpath(dir);
    for (const EditableRemote& r : chosen) {
        std::vector<NamedSignal> codes;
        QStringList skipped;
        for (const QString& function : ReadRemoteButtons(settings, r.slot)) {
            if (function.isEmpty())
                continue;
            QByteArray blob;
            QString why;
            if (ReadCheckedSignal(SignalFilePath(folder, r.name, function), &blob, &why) !=
                SignalRead::Ok) {
                skipped << function;
                continue;
            }
            NamedSignal code;
            code.name = function;
            code.group = r.name;
            const auto parsed = IrBlob::decode(blob);
            if (!parsed) {
                skipped << function;
                continue;
            }
            code.timing = TimingFromBlob(*parsed);
            code.code = DecodeSignal(code.timing);
            codes.push_back(code);
        }
        QString error;
        QString where;
        if (IrFormatIsSingle(*format)) {
            where = QDir(dir).filePath(FileNameOf(r.name));
            QDir().mkpath(where);
            for (const NamedSignal& code : codes) {
                const QString path =
                    QDir(where).filePath(FileNameOf(code.name + u'.' + IrFormatExtension(*format)));
                if (!SaveIrCodes(path, *format, {code}, &error))
                    break;
            }
        } else {
            where = QDir(dir).filePath(FileNameOf(r.name + u'.' + IrFormatExtension(*format)));
            SaveIrCodes(where, *format, codes, &error);
        }
        if (!error.isEmpty()) {
            *lines << u"%1: not written: %2"_s.arg(r.name, error);
            allWell = false;
            continue;
        }
        QString line = u"%1: %2 keys written to %3"_s.arg(r.name).arg(codes.size()).arg(where);
        if (!skipped.isEmpty())
            line += u" (no usable signal file: %1)"_s.arg(skipped.join(u", "_s));
        *lines << line;
    }
    return allWell;
}
