#include "infrared/formats/IrFormats.h"

#include "core/AtomicFile.h"
#include "core/BoundedRead.h"
#include "infrared/SignalStore.h"
#include "infrared/formats/FormatText.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;
using namespace IrFormatText;

namespace {

struct Named {
    IrFormat format;
    QStringView name;
    QStringView extension;
};
constexpr Named Formats[] = {
    {IrFormat::IrCtl, u"irctl", u"txt"},
    {IrFormat::Pronto, u"pronto", u"pronto"},
    {IrFormat::Flipper, u"flipper", u"ir"},
    {IrFormat::Broadlink, u"broadlink", u"b64"},
    {IrFormat::Lircd, u"lircd", u"conf"},
    {IrFormat::Json, u"json", u"json"},
    {IrFormat::Bin, u"bin", u"bin"},
    {IrFormat::GlobalCache, u"globalcache", u"gc"},
    {IrFormat::RawList, u"esphome", u"esphome"},
    {IrFormat::SmartIr, u"smartir", u"json"},
    {IrFormat::Tasmota, u"tasmota", u"tasmota"},
    {IrFormat::IrdbCsv, u"irdb", u"csv"},
};

bool isBase64(QByteArrayView word) {
    return std::all_of(word.begin(), word.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '+' || c == '/' || c == '=' || c == '-' || c == '_';
    });
}

bool isHex(QByteArrayView word) {
    return std::all_of(word.begin(), word.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    });
}

// Which of the JSON formats: SmartIR's device files, Tasmota's codes (whose
// compact raw data is logged unquoted, so not always JSON), or timings.
IrFormat jsonFormat(QByteArrayView bytes) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes.toByteArray(), &error);
    if (error.error != QJsonParseError::NoError)
        return bytes.contains("\"RawData\"") ? IrFormat::Tasmota : IrFormat::Json;
    const QJsonObject o = doc.object();
    if (IsSmartIrDevice(o))
        return IrFormat::SmartIr;
    if (IsTasmotaCode(o))
        return IrFormat::Tasmota;
    return IrFormat::Json;
}

} // namespace

QString IrFormatName(IrFormat format) {
    for (const Named& n : Formats)
        if (n.format == format)
            return n.name.toString();
    return {};
}

std::optional<IrFormat> IrFormatFromName(QStringView name) {
    for (const Named& n : Formats)
        if (name.compare(n.name, Qt::CaseInsensitive) == 0)
            return n.format;
    return std::nullopt;
}

QString IrFormatExtension(IrFormat format) {
    for (const Named& n : Formats)
        if (n.format == format)
            return n.extension.toString();
    return {};
}

std::optional<IrFormat> IrFormatFromPath(const QString& path) {
    const QString name = QFileInfo(path).fileName().toLower();
    const QString ext = QFileInfo(path).suffix().toLower();
    if (name.startsWith(u"lircd.conf"_s) || ext == u"conf" || ext == u"lircd")
        return IrFormat::Lircd;
    if (ext == u"ir")
        return IrFormat::Flipper;
    if (ext == u"json")
        return IrFormat::Json;
    if (ext == u"bin")
        return IrFormat::Bin;
    if (ext == u"pronto" || ext == u"hex")
        return IrFormat::Pronto;
    if (ext == u"gc" || ext == u"globalcache")
        return IrFormat::GlobalCache;
    if (ext == u"esphome")
        return IrFormat::RawList;
    if (ext == u"tasmota")
        return IrFormat::Tasmota;
    if (ext == u"csv")
        return IrFormat::IrdbCsv;
    if (ext == u"b64" || ext == u"broadlink")
        return IrFormat::Broadlink;
    if (ext == u"txt" || ext == u"irctl" || ext == u"mode2")
        return IrFormat::IrCtl;
    return std::nullopt;
}

bool IrFormatIsSingle(IrFormat format) {
    return format != IrFormat::Flipper && format != IrFormat::Lircd &&
           format != IrFormat::SmartIr && format != IrFormat::IrdbCsv;
}

QString TimingProblem(const IrTiming& timing) {
    const auto& d = timing.durations;
    if (d.empty())
        return u"no durations"_s;
    if (d.size() > size_t(MaxDurations))
        return u"%1 durations, more than the %2 a signal may have"_s.arg(d.size()).arg(
            MaxDurations);
    uint64_t total = 0;
    for (size_t i = 0; i < d.size(); ++i) {
        if (d[i] == 0)
            return u"duration %1 is zero"_s.arg(i + 1);
        total += d[i];
    }
    if (total > MaxSignalUs)
        return u"lasts %1 ms, longer than a key's signal may (%2 ms)"_s.arg(total / 1000)
            .arg(MaxSignalUs / 1000);
    if (timing.carrierHz != 0 &&
        (timing.carrierHz < MinCarrierHz || timing.carrierHz > MaxCarrierHz))
        return u"carrier of %1 Hz, outside %2 to %3 Hz"_s.arg(timing.carrierHz)
            .arg(MinCarrierHz)
            .arg(MaxCarrierHz);
    if (timing.repeatBegin < -1 || timing.repeatBegin >= int(d.size()))
        return u"the repeating part starts outside the signal"_s;
    return {};
}

std::optional<IrFormat> DetectIrFormat(QByteArrayView bytes) {
    if (bytes.size() == SignalFileSize && bytes.contains('\0'))
        return IrFormat::Bin;
    if (bytes.contains('\0'))
        return std::nullopt;
    // The first meaningful line tells most formats.
    for (const Line& line : SplitLines(bytes)) {
        if (line.text.isEmpty())
            continue;
        if (line.text.startsWith("Filetype:"))
            return IrFormat::Flipper;
        if (line.text.startsWith('{'))
            return jsonFormat(bytes);
        if (line.text.size() >= 7 && line.text.first(6).compare("IRsend", Qt::CaseInsensitive) == 0)
            return IrFormat::Tasmota;
        if (line.text.startsWith('#'))
            continue;
        if (line.text.size() >= 7 &&
            line.text.first(7).compare("sendir,", Qt::CaseInsensitive) == 0)
            return IrFormat::GlobalCache;
        if (LooksLikeIrdbCsv(line.text))
            return IrFormat::IrdbCsv;
        if (line.text.startsWith('[') ||
            (line.text.contains(',') && std::all_of(line.text.begin(), line.text.end(), [](char c) {
                 return (c >= '0' && c <= '9') || c == ',' || c == '-' || c == '+' || IsSpace(c);
             })))
            return IrFormat::RawList;
        const std::vector<QByteArrayView> words = Words(line.text);
        if (words.empty())
            break;
        if (words.size() >= 2 && words[0] == "begin" &&
            (words[1] == "remote" || words[1] == "raw_codes"))
            return IrFormat::Lircd;
        if (words.size() == 1 && words[0].size() >= 8 &&
            (words[0].startsWith("Jg") || words[0].startsWith("sg") || words[0].startsWith("1w") ||
             (words[0].startsWith("26") && isHex(words[0]))) &&
            isBase64(words[0]))
            return IrFormat::Broadlink;
        static const QByteArrayList prontoKinds{"0000", "0100", "5000", "5001", "6000", "900A"};
        if (words.size() >= 4 && prontoKinds.contains(words[0].toByteArray().toUpper()) &&
            std::all_of(words.begin(), words.end(),
                        [](QByteArrayView w) { return w.size() == 4 && isHex(w); }))
            return IrFormat::Pronto;
        const char c = words[0][0];
        if (c == '+' || c == '-' || (c >= '0' && c <= '9') || words[0] == "pulse" ||
            words[0] == "space" || words[0] == "carrier" || words[0] == "timeout" ||
            words[0] == "duty_cycle")
            return IrFormat::IrCtl;
        break;
    }
    // lircd.conf files open with remarks of any length and form.
    if (bytes.contains("begin remote"))
        return IrFormat::Lircd;
    return std::nullopt;
}

IrCodeRead ReadIrCodes(QByteArrayView bytes, const QString& fileName,
                       const IrFormatOptions& options) {
    IrCodeRead read;
    if (bytes.size() > MaxCodeFileBytes) {
        read.error =
            At(fileName, 0,
               u"%1 bytes, more than the %2 MB a file of codes may have"_s.arg(bytes.size())
                   .arg(MaxCodeFileBytes / (1024 * 1024)));
        return read;
    }
    read.format = DetectIrFormat(bytes);
    if (!read.format) {
        read.error = At(fileName, 0, u"not a file of infrared codes in a known format"_s);
        return read;
    }
    const QString name = QFileInfo(fileName).completeBaseName();
    auto single = [&](std::optional<NamedSignal> code) {
        if (code) {
            if (code->name.isEmpty())
                code->name = name;
            read.codes.push_back(std::move(*code));
        }
    };
    switch (*read.format) {
    case IrFormat::IrCtl:
        single(ReadIrCtlText(bytes, fileName, &read.error));
        break;
    case IrFormat::Pronto:
        single(ReadPronto(bytes, fileName, &read.error));
        break;
    case IrFormat::Broadlink:
        single(ReadBroadlink(bytes, fileName, options.broadlinkUnitUs, &read.error));
        break;
    case IrFormat::Json:
        single(ReadTimingJson(bytes, fileName, &read.error));
        break;
    case IrFormat::Bin:
        single(ReadSignalBlob(bytes, fileName, &read.error));
        break;
    case IrFormat::GlobalCache:
        single(ReadGlobalCache(bytes, fileName, &read.error));
        break;
    case IrFormat::RawList:
        single(ReadRawList(bytes, fileName, &read.error));
        break;
    case IrFormat::Tasmota:
        single(ReadTasmota(bytes, fileName, &read.error));
        break;
    case IrFormat::SmartIr:
        read = ReadSmartIr(bytes, fileName, options);
        break;
    case IrFormat::IrdbCsv:
        read = ReadIrdbCsv(bytes, fileName);
        break;
    case IrFormat::Flipper:
    case IrFormat::Lircd: {
        const std::optional<IrFormat> format = read.format;
        read = *format == IrFormat::Flipper ? ReadFlipper(bytes, fileName)
                                            : ReadLircd(bytes, fileName);
        read.format = format;
        break;
    }
    }
    if (read.ok() && read.codes.empty())
        read.error = At(fileName, 0,
                        read.refused.isEmpty() ? u"holds no codes"_s
                                               : u"holds no code that can be brought over"_s);
    return read;
}

IrCodeRead ReadIrCodePath(const QString& path, const IrFormatOptions& options) {
    const QFileInfo info(path);
    if (!info.isDir()) {
        BoundedRead file = ReadBounded(path, MaxCodeFileBytes);
        if (file.result == BoundedRead::TooLarge) {
            IrCodeRead read;
            read.error = At(path, 0,
                            u"more than the %1 MB a file of codes may have"_s.arg(MaxCodeFileBytes /
                                                                                  (1024 * 1024)));
            return read;
        }
        if (!file.ok()) {
            IrCodeRead read;
            read.error = At(path, 0, u"cannot be read: "_s + file.error);
            return read;
        }
        return ReadIrCodes(file.bytes, path, options);
    }
    // A directory: each file one signal, named after the file.
    IrCodeRead all;
    const QFileInfoList files =
        QDir(path).entryInfoList(QDir::Files | QDir::Readable, QDir::Name | QDir::IgnoreCase);
    for (const QFileInfo& f : files) {
        if (int(all.codes.size()) >= MaxCodesPerFile) {
            all.error = At(path, 0, u"more than %1 codes"_s.arg(MaxCodesPerFile));
            return all;
        }
        IrCodeRead one = ReadIrCodePath(f.filePath(), options);
        if (!one.ok()) {
            all.refused << one.error;
            continue;
        }
        all.refused << one.refused;
        for (NamedSignal& c : one.codes) {
            if (one.codes.size() == 1 && one.format && IrFormatIsSingle(*one.format))
                c.name = f.completeBaseName();
            all.codes.push_back(std::move(c));
        }
    }
    if (all.codes.empty())
        all.error = At(path, 0, u"holds no code that can be read"_s);
    return all;
}

QByteArray WriteIrCodes(IrFormat format, const std::vector<NamedSignal>& codes, QString* error,
                        const IrFormatOptions& options) {
    QString problem;
    QByteArray out;
    if (codes.empty()) {
        problem = u"no codes to write"_s;
    } else if (IrFormatIsSingle(format) && codes.size() > 1) {
        problem = u"%1 holds one signal, and there are %2; write them into a directory"_s
                      .arg(IrFormatName(format))
                      .arg(codes.size());
    } else {
        for (const NamedSignal& c : codes) {
            QString why = TimingProblem(c.timing);
            if (!why.isEmpty()) {
                problem = c.name + u": "_s + why;
                break;
            }
        }
    }
    if (problem.isEmpty()) {
        switch (format) {
        case IrFormat::IrCtl:
            out = WriteIrCtlText(codes.front());
            break;
        case IrFormat::Pronto:
            out = WritePronto(codes.front(), &problem);
            break;
        case IrFormat::Broadlink:
            out = WriteBroadlink(codes.front(), options.broadlinkUnitUs, &problem);
            break;
        case IrFormat::Json:
            out = WriteTimingJson(codes.front());
            break;
        case IrFormat::Bin:
            out = WriteSignalBlob(codes.front(), &problem);
            break;
        case IrFormat::GlobalCache:
            out = WriteGlobalCache(codes.front(), &problem);
            break;
        case IrFormat::RawList:
            out = WriteRawList(codes.front());
            break;
        case IrFormat::Tasmota:
            out = WriteTasmota(codes.front(), &problem);
            break;
        case IrFormat::SmartIr:
            problem = u"SmartIR files are read, not written"_s;
            break;
        case IrFormat::IrdbCsv:
            out = WriteIrdbCsv(codes, &problem);
            break;
        case IrFormat::Flipper:
            out = WriteFlipper(codes, &problem);
            break;
        case IrFormat::Lircd:
            out = WriteLircd(codes, &problem);
            break;
        }
    }
    if (!problem.isEmpty()) {
        if (error)
            *error = problem;
        return {};
    }
    return out;
}

bool SaveIrCodes(const QString& path, IrFormat format, const std::vector<NamedSignal>& codes,
                 QString* error, const IrFormatOptions& options) {
    QString why;
    const QByteArray bytes = WriteIrCodes(format, codes, &why, options);
    if (bytes.isEmpty()) {
        if (error)
            *error = path + u": "_s + why;
        return false;
    }
    return WriteFileAtomically(path, bytes, 0644, error);
}

std::optional<NamedSignal> ReadSignalBlob(QByteArrayView bytes, const QString& fileName,
                                          QString* error) {
    const ParsedSignal parsed = ParseSignalFile(bytes);
    std::optional<IrBlob> blob =
        parsed.error.isEmpty() ? IrBlob::decode(parsed.blob) : std::nullopt;
    if (!blob) {
        *error = At(fileName, 0,
                    u"not a usable signal file: "_s +
                        (parsed.error.isEmpty() ? u"damaged"_s : parsed.error));
        return std::nullopt;
    }
    NamedSignal code;
    code.timing = TimingFromBlob(*blob);
    return code;
}

QByteArray WriteSignalBlob(const NamedSignal& code, QString* error) {
    int needed = 0;
    const std::optional<IrBlob> blob = BlobFromTiming(code.timing, &needed);
    const QByteArray bytes = blob ? blob->encode() : QByteArray();
    if (!blob || bytes.size() > SignalFileSize - 2) {
        *error = blob ? u"too long for a signal file"_s
                      : u"needs %1 distinct durations to keep each within 5 %, and a signal file "
                        u"holds %2"_s.arg(needed)
                            .arg(IrBlob::MaxTable);
        return {};
    }
    SignalImage image{};
    std::copy_n(bytes.constData(), bytes.size(), image.begin());
    StampSignalLength(image, int(bytes.size()));
    return QByteArray(reinterpret_cast<const char*>(image.data()), SignalFileSize);
}
