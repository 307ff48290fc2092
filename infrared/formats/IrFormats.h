#pragma once

#include "infrared/IrProtocol.h"
#include "infrared/IrSignal.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>

class QJsonObject;

#include <cstdint>
#include <optional>
#include <vector>

// The files other IR programs and devices keep their codes in, read and
// written: one or many named signals per file.

// One named signal. code is set when the file says what the signal is (a
// Flipper "parsed" entry, a lircd remote of a known protocol), in the kernel's
// names and numbers; raw when only the timings are known.
struct NamedSignal {
    QString name;
    QString group; // the lircd remote it belongs to; empty elsewhere
    IrTiming timing;
    IrCode code;
};

enum class IrFormat {
    IrCtl,
    Pronto,
    Flipper,
    Broadlink,
    Lircd,
    Json,
    Bin,
    GlobalCache,
    RawList,
    SmartIr, // read only
    Tasmota,
    IrdbCsv,
};

// "irctl", "pronto", ... as the command line names them, and back.
QString IrFormatName(IrFormat format);
std::optional<IrFormat> IrFormatFromName(QStringView name);
// From a file name's extension (.ir, .conf, .json, .bin, .pronto, .txt, ...).
std::optional<IrFormat> IrFormatFromPath(const QString& path);
// Formats that hold one signal per file.
bool IrFormatIsSingle(IrFormat format);
QString IrFormatExtension(IrFormat format);

// Broadlink's duration unit: the maker's published notes give 269/8192 ms;
// python-broadlink rounds it to 32.84 µs.
constexpr double BroadlinkUnitUs = 269000.0 / 8192.0;
constexpr double PythonBroadlinkUnitUs = 32.84;

struct IrFormatOptions {
    double broadlinkUnitUs = BroadlinkUnitUs;
};

// What a file held: its codes, the ones it held that could not be brought
// over (each with its reason) and, when nothing could be read at all, why.
// Errors and notes name the file and, for text, the line.
struct IrCodeRead {
    std::optional<IrFormat> format;
    std::vector<NamedSignal> codes;
    QStringList refused;
    QString error;
    bool ok() const { return error.isEmpty(); }
};

// Limits that keep a hostile file from taking the machine: bytes per file,
// signals per file and durations per signal.
constexpr qsizetype MaxCodeFileBytes = 16 * 1024 * 1024;
constexpr int MaxCodesPerFile = 20000;
constexpr int MaxDurations = 4096;

// Which format the bytes are in, from their content alone.
std::optional<IrFormat> DetectIrFormat(QByteArrayView bytes);

// Reads the bytes in the format their content shows. fileName is only for
// the messages.
IrCodeRead ReadIrCodes(QByteArrayView bytes, const QString& fileName,
                       const IrFormatOptions& options = {});
// Reads a file, or every file of a directory as one signal each, named after
// the file without its extension.
IrCodeRead ReadIrCodePath(const QString& path, const IrFormatOptions& options = {});

// The bytes of a file in the format; empty with the reason in error when the
// signals cannot be written so (a single-signal format given many, a duration
// the format cannot hold...).
QByteArray WriteIrCodes(IrFormat format, const std::vector<NamedSignal>& codes, QString* error,
                        const IrFormatOptions& options = {});
// WriteIrCodes into path, replacing it whole or leaving it untouched.
bool SaveIrCodes(const QString& path, IrFormat format, const std::vector<NamedSignal>& codes,
                 QString* error, const IrFormatOptions& options = {});

// Why the timing is no signal to keep (no durations, too many, a zero one,
// longer than a key lasts, a carrier no transceiver has); empty when it is one.
QString TimingProblem(const IrTiming& timing);

// The single formats, for those who know what they hold. Readers set error
// (naming fileName and the line) and return nothing on failure.
std::optional<NamedSignal> ReadIrCtlText(QByteArrayView bytes, const QString& fileName,
                                         QString* error);
QByteArray WriteIrCtlText(const NamedSignal& code);

std::optional<NamedSignal> ReadPronto(QByteArrayView bytes, const QString& fileName,
                                      QString* error);
QByteArray WritePronto(const NamedSignal& code, QString* error);

std::optional<NamedSignal> ReadBroadlink(QByteArrayView bytes, const QString& fileName,
                                         double unitUs, QString* error);
QByteArray WriteBroadlink(const NamedSignal& code, double unitUs, QString* error);

// Refuses a "modulation" outside MinCarrierHz to MaxCarrierHz and timings that
// start with a space; field (when given) names the member at fault, "" when the
// bytes are no JSON.
std::optional<NamedSignal> ReadTimingJson(QByteArrayView bytes, const QString& fileName,
                                          QString* error, QString* field = nullptr);
QByteArray WriteTimingJson(const NamedSignal& code);

IrCodeRead ReadFlipper(QByteArrayView bytes, const QString& fileName);
QByteArray WriteFlipper(const std::vector<NamedSignal>& codes, QString* error);

IrCodeRead ReadLircd(QByteArrayView bytes, const QString& fileName);
QByteArray WriteLircd(const std::vector<NamedSignal>& codes, QString* error);

std::optional<NamedSignal> ReadGlobalCache(QByteArrayView bytes, const QString& fileName,
                                           QString* error);
QByteArray WriteGlobalCache(const NamedSignal& code, QString* error);

// ESPHome's signed lists, and plain comma-separated durations; written as the
// former.
std::optional<NamedSignal> ReadRawList(QByteArrayView bytes, const QString& fileName,
                                       QString* error);
QByteArray WriteRawList(const NamedSignal& code);

std::optional<NamedSignal> ReadSignalBlob(QByteArrayView bytes, const QString& fileName,
                                          QString* error);
QByteArray WriteSignalBlob(const NamedSignal& code, QString* error);

// SmartIR's device files: every code under "commands" one signal, named by
// its path ("cool_auto_24"), all of one remote named after the device.
bool IsSmartIrDevice(const QJsonObject& object);
IrCodeRead ReadSmartIr(QByteArrayView bytes, const QString& fileName,
                       const IrFormatOptions& options = {});

// Tasmota's codes: its protocol JSON (bare, in "IrReceived", or after
// "IRsend") and its raw IRsend lists; written as JSON where the protocol is
// one Tasmota has, as a raw list otherwise.
bool IsTasmotaCode(const QJsonObject& object);
std::optional<NamedSignal> ReadTasmota(QByteArrayView bytes, const QString& fileName,
                                       QString* error);
QByteArray WriteTasmota(const NamedSignal& code, QString* error);

// irdb's CSV: a key a row, encoded from its IRP protocol and D, S, F; rows of
// a protocol we cannot send are refused each with the reason. Written for
// codes that have an IRP protocol with D, S and F alone.
bool LooksLikeIrdbCsv(QByteArrayView firstLine);
IrCodeRead ReadIrdbCsv(QByteArrayView bytes, const QString& fileName);
QByteArray WriteIrdbCsv(const std::vector<NamedSignal>& codes, QString* error);
