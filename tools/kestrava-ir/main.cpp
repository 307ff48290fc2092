// kestrava-ir: checks an infrared transceiver without the program. Lists the
// devices that may be one, captures a signal into a signal file, sends one,
// and prints a signal's durations so that it can be attached to a report or
// replayed with ir-ctl.
#include "core/AtomicFile.h"
#include "core/Log.h"
#include "core/NameText.h"
#include "core/ProgramFolder.h"
#include "core/Wait.h"
#include "infrared/Climate.h"
#include "infrared/DeviceList.h"
#include "infrared/IrDriver.h"
#include "infrared/IrProtocol.h"
#include "infrared/IrSignal.h"
#include "infrared/LircDriver.h"
#include "infrared/SignalStore.h"
#include "infrared/TiraFacts.h"
#include "infrared/TiraSerialDriver.h"
#include "infrared/formats/IrFormats.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QTimer>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Each command's synopsis and what it does; the whole usage is all of them.
struct Command {
    const char* name;
    const char* help;
    bool device; // takes a DEVICE
};
const Command Commands[] = {
    {"list", "  list [--json]             devices that may be a transceiver\n", false},
    {"capture",
     "  capture DEVICE FILE [S]   learn one signal (wait up to S seconds, 1 to 600,\n"
     "                            default 11) and store it as a signal file\n",
     true},
    {"send", "  send DEVICE FILE          send a signal file\n", true},
    {"show",
     "  show FILE [--mode2|--json] print a signal file, or each key of any file of\n"
     "                            codes convert reads, as pulse/space durations in µs\n"
     "                            with its carrier and protocol (ir-ctl's text, mode2\n"
     "                            or JSON form)\n",
     false},
    {"encode",
     "  encode PROTO:SCANCODE FILE  write the signal of a code (nec:0x0408, as\n"
     "                            ir-ctl -S takes it, or PROTOCOL:D,S,F as the IR\n"
     "                            databases write it: NEC1:4,251,8) as a signal file\n",
     false},
    {"climate",
     "  climate FAMILY WORDS... FILE  write an air conditioner's state frame as a\n"
     "                            signal file; WORDS: power=on|off mode=cool|heat|\n"
     "                            dry|fan|auto temp=26 fan=auto|quiet|1..5 swing=on|off\n"
     "  climate --list            the air-conditioner families: name, title,\n"
     "                            temperatures and fans\n",
     false},
    {"convert",
     "  convert IN OUT [--to FORMAT] [--broadlink-unit UNIT]\n"
     "                            convert one signal or a file of many; IN's format\n"
     "                            is found from its content, OUT's from --to or its\n"
     "                            extension; many signals into a one-signal format\n"
     "                            need a directory as OUT. FORMAT, read and written:\n"
     "                              irctl       ir-ctl/mode2 text (.txt)\n"
     "                              pronto      Pronto hex: 0000 learned, 5000 RC5,\n"
     "                                          5001 RC5x, 6000 RC6, 900A NEC (.pronto)\n"
     "                              flipper     Flipper Zero .ir files (many keys)\n"
     "                              broadlink   Broadlink base64 or hex (.b64)\n"
     "                              lircd       lircd.conf remotes (many keys, .conf)\n"
     "                              json        Home Assistant timings (.json)\n"
     "                              globalcache Global Cache sendir (.gc)\n"
     "                              esphome     ESPHome [µs] lists, comma-separated\n"
     "                                          durations (.esphome)\n"
     "                              tasmota     Tasmota IRsend JSON or raw (.tasmota)\n"
     "                              irdb        irdb CSV rows in IRP (many keys, .csv)\n"
     "                              bin         a signal file (.bin)\n"
     "                            and read only: smartir (SmartIR device files)\n"
     "                            UNIT: broadlink (269/8192 ms, default),\n"
     "                            python-broadlink (32.84 us) or a number of us\n",
     false},
};

const char* const DeviceNote =
    "DEVICE is a path (/dev/ttyUSB0, /dev/lirc0), a number n for /dev/ttyUSBn,\n"
    "or sim for the simulator (which logs to ./sim-transmit.log).\n";
const char* const FileNote = "A FILE, IN or OUT of - is standard input or output.\n";
const char* const ExitNote = "Exit status: 0 done, 1 failed, 2 bad usage.\n";

QByteArray usage(const Command* only) {
    QByteArray text = only ? QByteArray("Usage: kestrava-ir ") + only->name + " ARGS\n\n"
                           : "Usage: kestrava-ir COMMAND [ARGS]\n"
                             "Checks an infrared transceiver for Kestrava.\n\n";
    for (const Command& c : Commands)
        if (!only || only == &c)
            text += c.help;
    if (!only)
        text += "  help [COMMAND]            show this help, or a command's, and exit\n"
                "  --version                 show the version and exit\n";
    text += "\n";
    if (!only || only->device)
        text += DeviceNote;
    if (!only || (only->name != QByteArrayView("list")))
        text += FileNote;
    return text + ExitNote;
}

const Command* commandNamed(const QString& name) {
    for (const Command& c : Commands)
        if (name == QLatin1StringView(c.name))
            return &c;
    return nullptr;
}

// Notes for the user go to standard output unless it carries the data.
FILE* notes = stdout;

bool isStdio(const QString& path) {
    return path == u"-";
}

// Standard input to its end; nothing when it holds more than limit bytes.
std::optional<QByteArray> readStdin(qsizetype limit) {
    QByteArray bytes;
    char piece[64 * 1024];
    for (;;) {
        const ssize_t n = ::read(STDIN_FILENO, piece, sizeof piece);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return bytes;
        bytes.append(piece, n);
        if (bytes.size() > limit)
            return std::nullopt;
    }
}

// The data takes standard output; the words go to standard error.
void outputTo(const QString& path) {
    if (isStdio(path))
        notes = stderr;
}

// bytes into path, replaced whole, or onto standard output for "-".
bool writeOut(const QString& path, QByteArrayView bytes, QString* error) {
    if (!isStdio(path))
        return WriteFileAtomically(path, bytes, 0644, error);
    const bool ok =
        std::fwrite(bytes.data(), 1, size_t(bytes.size()), stdout) == size_t(bytes.size()) &&
        std::fflush(stdout) == 0;
    if (!ok)
        *error = u"standard output: "_s + QString::fromLocal8Bit(std::strerror(errno));
    return ok;
}

// A signal file's bytes for a blob: the image with its length stamped.
QByteArray signalImage(QByteArrayView blob) {
    SignalImage image{};
    const int length = int(std::min<qsizetype>(blob.size(), SignalFileSize));
    std::copy_n(reinterpret_cast<const uint8_t*>(blob.data()), length, image.begin());
    StampSignalLength(image, length);
    return QByteArray(reinterpret_cast<const char*>(image.data()), SignalFileSize);
}

void print(const QString& text) {
    std::fputs(text.toLocal8Bit().constData(), notes);
}

void complain(const QString& text) {
    std::fprintf(stderr, "kestrava-ir: %s\n", text.toLocal8Bit().constData());
}

QString targetOf(const QString& device) {
    bool number = false;
    int n = device.toInt(&number);
    return number ? u"/dev/ttyUSB"_s + QString::number(n) : device;
}

int list(bool json) {
    const QList<IrDeviceEntry> devices = ListIrDevices();
    if (json) {
        QJsonArray all;
        for (const IrDeviceEntry& d : devices)
            all.append(QJsonObject{{u"path"_s, d.path}, {u"note"_s, d.note}});
        print(QString::fromUtf8(QJsonDocument(all).toJson(QJsonDocument::Compact)) + u'\n');
        return 0;
    }
    for (const IrDeviceEntry& d : devices)
        print(d.path + u"  "_s + d.note + u'\n');
    if (devices.isEmpty())
        print(u"no serial or LIRC devices found\n"_s);
    return 0;
}

// The driver's return code in words; each kind of device numbers its own.
QString describe(const IrDriver& driver, int rc) {
    if (dynamic_cast<const TiraSerialDriver*>(&driver)) {
        switch (rc) {
        case TiraSerialDriver::NotOpen:
            return u"cannot be opened as a serial port"_s;
        case TiraSerialDriver::Busy:
            return u"busy with another exchange"_s;
        case TiraSerialDriver::NoReply:
            return u"does not answer as a Tira"_s;
        case TiraSerialDriver::BadSignal:
            return u"the signal is not one the device can send"_s;
        case TiraSerialDriver::NoTransmitter:
            return u"the device has no transmitter"_s;
        case TiraSerialDriver::Unsupported:
            return u"the device does not support this"_s;
        case TiraSerialDriver::Io:
            return u"input/output error"_s;
        case TiraSerialDriver::Missing:
            return u"no such device (not plugged in?)"_s;
        case TiraSerialDriver::Forbidden:
            return u"permission denied (join the group that owns it, usually dialout)"_s;
        case TiraSerialDriver::InUse:
            return u"in use by another program"_s;
        }
    } else if (dynamic_cast<const LircDriver*>(&driver)) {
        switch (rc) {
        case LircDriver::NotOpen:
            return u"cannot be opened as an infrared device"_s;
        case LircDriver::CannotReceive:
            return u"the device cannot receive"_s;
        case LircDriver::CannotSend:
            return u"the device cannot send"_s;
        case LircDriver::BadSignal:
            return u"the signal is not one the device can send"_s;
        case LircDriver::Io:
            return u"input/output error"_s;
        }
    }
    return u"error code "_s + QString::number(rc);
}

std::unique_ptr<IrDriver> openDriver(const QString& device) {
    ProgramFolder here(QDir::currentPath());
    QString target = targetOf(device);
    auto driver = MakeIrDriver(target, here);
    int rc = driver->tira_init();
    if (rc == 0)
        rc = driver->tira_start(0);
    if (rc != 0) {
        complain(target + u": cannot open the transceiver: "_s + describe(*driver, rc));
        return nullptr;
    }
    return driver;
}

// The signal of a file, checked as the program checks it before a send.
bool readSignal(const QString& path, QByteArray* bytes) {
    QString why;
    if (isStdio(path)) {
        const auto image = readStdin(MaxCodeFileBytes);
        const ParsedSignal parsed =
            image ? ParseSignalFile(image->left(SignalFileSize)) : ParsedSignal{};
        if (!image || !parsed.error.isEmpty()) {
            complain(u"standard input: not a usable signal: "_s +
                     (image ? parsed.error : u"too large"_s));
            return false;
        }
        *bytes = parsed.blob;
        return true;
    }
    switch (ReadCheckedSignal(path, bytes, &why)) {
    case SignalRead::Ok:
        return true;
    case SignalRead::Damaged:
        complain(path + u": not a usable signal: "_s + why);
        return false;
    default:
        complain(path + u": not a readable signal file"_s);
        return false;
    }
}

QJsonArray jsonDurations(const std::vector<uint32_t>& durations) {
    QJsonArray a;
    for (size_t i = 0; i < durations.size(); ++i)
        a.append(i % 2 ? -qint64(durations[i]) : qint64(durations[i]));
    return a;
}

// Home Assistant's signed form: positive µs with the carrier on, negative off.
QJsonObject codeJson(const IrTiming& t, const IrCode& code) {
    QJsonObject o;
    o[u"protocol"_s] = ProtocolName(code.protocol);
    if (code.decoded() && code.protocol != IrProtocol::Aeha)
        o[u"scancode"_s] = CodeSpec(code).section(u':', 1); // "0x0408", as ir-ctl -S takes it
    o[u"spec"_s] = CodeSpec(code);
    o[u"irp"_s] = IrpJson(code);
    o[u"carrier"_s] = t.carrierHz;
    std::vector<uint32_t> first = t.durations;
    if (t.repeats())
        first.resize(size_t(t.repeatBegin));
    o[u"timings"_s] = jsonDurations(first);
    o[u"repeat"_s] = jsonDurations(
        t.repeats() ? std::vector<uint32_t>(t.durations.begin() + t.repeatBegin, t.durations.end())
                    : std::vector<uint32_t>{});
    const IrCodeFields f = FieldsOf(code);
    auto put = [&](const char* key, std::optional<uint32_t> v) {
        if (v)
            o[QLatin1StringView(key)] = qint64(*v);
    };
    put("address", f.address);
    put("command", f.command);
    put("subdevice", f.subdevice);
    put("extra", f.extra);
    if (HasToggle(code.protocol))
        o[u"toggle"_s] = code.toggle ? 1 : 0;
    if (f.maker) {
        o[u"maker"_s] = u"0x"_s + u"%1"_s.arg(*f.maker, 4, 16, QChar(u'0'));
        QJsonArray frames;
        for (const auto& frame : code.frames) {
            QJsonArray bytes;
            for (uint8_t b : frame)
                bytes.append(int(b));
            frames.append(bytes);
        }
        o[u"bytes"_s] = code.frames.size() == 1 ? frames[0] : QJsonValue(frames);
    }
    return o;
}

enum class ShowAs { Text, Mode2, Json };

void showTiming(const IrTiming& t, const IrCode& code, ShowAs as, const QString& name) {
    if (as == ShowAs::Json) {
        QJsonObject o = codeJson(t, code);
        if (const auto heard = DecodeClimate(t))
            o[u"climate"_s] = ClimateJson(*heard);
        if (!name.isNull())
            o[u"name"_s] = name;
        print(QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact)) + u'\n');
        return;
    }
    if (!name.isNull())
        print(u"# key "_s + name + u'\n');
    int carrier = t.carrierHz > 0 ? t.carrierHz : DefaultCarrierHz;
    if (as == ShowAs::Mode2) {
        print(u"carrier "_s + QString::number(carrier) + u'\n');
        for (size_t i = 0; i < t.durations.size(); ++i)
            print((i % 2 ? u"space "_s : u"pulse "_s) + QString::number(t.durations[i]) + u'\n');
        return;
    }
    print(u"# carrier "_s + QString::number(carrier) + u" Hz"_s +
          (t.carrierHz > 0 ? u""_s : u" (not stored; assumed)"_s) + u", "_s +
          QString::number(t.durations.size()) + u" durations"_s +
          (t.repeatBegin >= 0 ? u", repeat from "_s + QString::number(t.repeatBegin) : u""_s) +
          u'\n');
    if (code.decoded())
        print(u"# protocol "_s + CodeDisplay(code) + u" ("_s + CodeSpec(code) + u")\n"_s);
    print(u"# send with: ir-ctl -c "_s + QString::number(carrier) + u" -s FILE\n"_s);
    print(IrCtlText(t.frame()) + u'\n');
    if (t.repeatBegin >= 0)
        print(u"# repeating part\n"_s + IrCtlText(t.repeatFrame()) + u'\n');
}

// A signal file, or any file of codes: each of its keys in turn.
int show(const QString& path, ShowAs as) {
    QByteArray head;
    if (isStdio(path)) {
        const auto bytes = readStdin(MaxCodeFileBytes);
        if (!bytes) {
            complain(u"standard input: more than a file of codes may have"_s);
            return 1;
        }
        head = *bytes;
    } else if (QFile file(path); file.open(QIODevice::ReadOnly)) {
        head = file.read(MaxCodeFileBytes);
    }
    const std::optional<IrFormat> format = DetectIrFormat(head);
    if (!format || *format == IrFormat::Bin || QFileInfo(path).isDir()) {
        QByteArray bytes;
        if (isStdio(path)) {
            const ParsedSignal parsed = ParseSignalFile(head.left(SignalFileSize));
            if (!parsed.error.isEmpty()) {
                complain(u"standard input: not a usable signal: "_s + parsed.error);
                return 1;
            }
            bytes = parsed.blob;
        } else if (!readSignal(path, &bytes)) {
            return 1;
        }
        auto blob = IrBlob::decode(bytes);
        if (!blob)
            return 1;
        const IrTiming t = TimingFromBlob(*blob);
        showTiming(t, DecodeSignal(t), as, QString());
        return 0;
    }
    const IrCodeRead read =
        isStdio(path) ? ReadIrCodes(head, u"standard input"_s) : ReadIrCodePath(path);
    for (const QString& note : read.refused)
        complain(u"left out: "_s + note);
    if (!read.ok()) {
        complain(read.error);
        return 1;
    }
    for (const NamedSignal& c : read.codes) {
        const QString name = c.group.isEmpty() ? c.name : c.group + u": "_s + c.name;
        showTiming(c.timing, c.code.decoded() ? c.code : DecodeSignal(c.timing), as,
                   read.codes.size() > 1 || !c.name.isEmpty() ? name : QString());
    }
    return 0;
}

// Whether the signal file can be stored (written beside, then renamed over
// path), found out before anybody is asked to press a key. A probe file in
// its folder tells, and goes again.
bool writable(const QString& path) {
    const QFileInfo info(path);
    int err = 0;
    if (info.isDir()) {
        err = EISDIR;
    } else {
        QByteArray probe = QFile::encodeName(info.absolutePath() + u"/.kestrava-ir.XXXXXX"_s);
        const int fd = ::mkostemp(probe.data(), O_CLOEXEC);
        if (fd < 0) {
            err = errno;
        } else {
            ::close(fd);
            ::unlink(probe.constData());
        }
    }
    if (err)
        complain(path + u": cannot be written: "_s + QString::fromLocal8Bit(std::strerror(err)));
    return err == 0;
}

int capture(const QString& device, const QString& path, int seconds) {
    outputTo(path);
    if (!isStdio(path) && !writable(path))
        return 1;
    auto driver = openDriver(device);
    if (!driver)
        return 1;
    if (driver->tira_start_capture() != 0) {
        complain(u"the transceiver cannot capture"_s);
        return 1;
    }
    print(u"Point the remote at the receiver and press the key...\n"_s);
    std::fflush(stdout);
    QByteArray data;
    int rc = 0;
    QTimer poll;
    QEventLoop loop;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        rc = driver->tira_get_captured_data(&data, SignalFileSize);
        if (rc != 0 || !data.isEmpty())
            loop.quit();
    });
    QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
    poll.start(40);
    loop.exec();
    driver->tira_cancel_capture();
    driver->tira_stop();
    if (data.isEmpty()) {
        const auto* lirc = dynamic_cast<const LircDriver*>(driver.get());
        complain(rc                              ? u"the capture failed"_s
                 : lirc && lirc->learnsCloseUp() ? u"nothing was received (this device learns "
                                                   u"through its short-range learning receiver: "
                                                   u"hold the remote a few centimetres from it)"_s
                                                 : u"nothing was received"_s);
        return 1;
    }
    QString error;
    if (!writeOut(path, signalImage(data), &error)) {
        complain(error);
        return 1;
    }
    if (isStdio(path))
        return 0;
    print(u"stored "_s + QString::number(data.size()) + u" bytes in "_s + path + u'\n');
    return show(path, ShowAs::Text);
}

int encode(const QString& spec, const QString& path) {
    QString why;
    const auto code = ParseCodeSpec(spec, &why);
    if (!code) {
        complain(spec + u": "_s + why);
        return 2;
    }
    const auto timing = EncodeSignal(*code);
    const auto blob = timing ? BlobFromTiming(*timing) : std::nullopt;
    if (!blob || blob->encode().size() > SignalFileSize - 2) {
        complain(spec + u": cannot be made into a signal file"_s);
        return 1;
    }
    QString error;
    if (!writeOut(path, signalImage(blob->encode()), &error)) {
        complain(error);
        return 1;
    }
    return 0;
}

int climateList() {
    for (const ClimateCaps& c : ClimateFamilies()) {
        QStringList modes;
        for (ClimateMode m : c.modes)
            modes << ClimateModeName(m);
        print(u"%1\t%2\t%3-%4 step %5\tfans %6\tmodes %7%8\n"_s.arg(c.family, c.title)
                  .arg(c.minTemp)
                  .arg(c.maxTemp)
                  .arg(c.step)
                  .arg(c.fans.join(u','), modes.join(u','), c.swing ? u"\tswing"_s : QString()));
    }
    return 0;
}

// The shared state checks speak the program's Japanese; the tool tells the
// same refusals in English.
QString wordProblem(const QString& word) {
    const qsizetype eq = word.indexOf(u'=');
    const QString name = word.left(eq).trimmed().toLower();
    if (eq <= 0)
        return u"'%1' is not NAME=VALUE"_s.arg(word);
    if (name == u"power" || name == u"swing")
        return u"%1 is on or off"_s.arg(name);
    if (name == u"mode")
        return u"mode is one of auto, cool, heat, dry, fan"_s;
    if (name == u"temp" || name == u"temperature")
        return u"temp '%1' is not a number (26, 24.5)"_s.arg(word.mid(eq + 1));
    if (name == u"fan")
        return u"fan is empty"_s;
    return u"unknown word '%1' (power, mode, temp, fan, swing)"_s.arg(name);
}

QString fitProblem(const ClimateCaps& caps, const ClimateState& wanted) {
    QStringList modes;
    for (ClimateMode m : caps.modes)
        modes << ClimateModeName(m);
    if (!caps.hasMode(wanted.mode))
        return u"%1 has no mode %2 (only %3)"_s.arg(caps.family, ClimateModeName(wanted.mode),
                                                    modes.join(u", "_s));
    if (!caps.fans.contains(wanted.fan))
        return u"%1's fan is one of %2"_s.arg(caps.family, caps.fans.join(u", "_s));
    if (wanted.swing && !caps.swing)
        return u"%1 has no swing"_s.arg(caps.family);
    return u"%1 takes temp %2 to %3"_s.arg(caps.family).arg(caps.minTemp).arg(caps.maxTemp);
}

int climate(const QStringList& args) {
    if (args.size() < 2) {
        complain(u"wrong arguments for 'climate'"_s);
        return 2;
    }
    const QString family = args.first();
    const auto caps = ClimateFamily(family);
    if (!caps) {
        complain(u"unknown family '"_s + family + u"' (see: kestrava-ir climate --list)"_s);
        return 2;
    }
    QString why;
    ClimateState wanted;
    wanted.power = true;
    for (const QString& word : args.mid(1, args.size() - 2)) {
        const auto next = ClimateStateFromWords({word}, wanted, &why);
        if (!next) {
            complain(wordProblem(word));
            return 2;
        }
        wanted = *next;
    }
    const ClimateFit fit = FitClimateState(*caps, wanted);
    if (!fit.state) {
        complain(fitProblem(*caps, wanted));
        return 2;
    }
    if (fit.state->temperature != wanted.temperature)
        complain(u"temp %1 rounded to %2 (steps of %3)"_s.arg(wanted.temperature)
                     .arg(fit.state->temperature)
                     .arg(caps->step));
    else if (!fit.note.isEmpty())
        complain(u"mode %1 ignores the temperature"_s.arg(ClimateModeName(wanted.mode)));
    const auto timing = EncodeClimate(caps->family, *fit.state, &why);
    const auto blob = timing ? BlobFromTiming(*timing) : std::nullopt;
    if (!blob || blob->encode().size() > SignalFileSize - 2) {
        complain(timing ? u"the frame cannot be made into a signal file"_s : why);
        return 1;
    }
    QString error;
    if (!writeOut(args.last(), signalImage(blob->encode()), &error)) {
        complain(error);
        return 1;
    }
    return 0;
}

int send(const QString& device, const QString& path) {
    QByteArray bytes;
    if (!readSignal(path, &bytes))
        return 1;
    auto driver = openDriver(device);
    if (!driver)
        return 1;
    int rc = driver->tira_transmit(TiraFacts::TransmitRepeat, -1, bytes);
    driver->tira_stop();
    if (rc != 0) {
        complain(u"the transmission failed: "_s + describe(*driver, rc));
        return 1;
    }
    print(u"sent\n"_s);
    return 0;
}

int convert(const QStringList& args) {
    QStringList paths;
    std::optional<IrFormat> to;
    IrFormatOptions options;
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == u"--to" && i + 1 < args.size()) {
            to = IrFormatFromName(args[++i]);
            if (!to) {
                complain(u"unknown format '"_s + args[i] +
                         u"' (irctl, pronto, flipper, broadlink, lircd, json, globalcache, "
                         u"esphome, tasmota, irdb or bin)"_s);
                return 2;
            }
        } else if (args[i] == u"--broadlink-unit" && i + 1 < args.size()) {
            const QString unit = args[++i];
            bool number = false;
            const double us = unit.toDouble(&number);
            if (unit == u"broadlink")
                options.broadlinkUnitUs = BroadlinkUnitUs;
            else if (unit == u"python-broadlink")
                options.broadlinkUnitUs = PythonBroadlinkUnitUs;
            else if (number && us >= 1 && us <= 1000)
                options.broadlinkUnitUs = us;
            else {
                complain(u"unknown Broadlink unit '"_s + unit + u"'"_s);
                return 2;
            }
        } else if (args[i].startsWith(u"--"_s)) {
            complain(u"unknown option '"_s + args[i] + u"'"_s);
            return 2;
        } else {
            paths << args[i];
        }
    }
    if (paths.size() != 2) {
        complain(u"wrong arguments for 'convert'"_s);
        return 2;
    }
    const QString& in = paths[0];
    const QString& out = paths[1];
    outputTo(out);
    const QFileInfo outInfo(out);
    const bool intoDirectory = !isStdio(out) && (outInfo.isDir() || out.endsWith(u'/'));
    if (!to && !intoDirectory)
        to = IrFormatFromPath(out);
    if (!to) {
        complain(out + u": cannot tell the format from the name; say --to FORMAT"_s);
        return 2;
    }
    IrCodeRead read;
    if (isStdio(in)) {
        const auto bytes = readStdin(MaxCodeFileBytes);
        if (!bytes) {
            complain(u"standard input: more than a file of codes may have"_s);
            return 1;
        }
        read = ReadIrCodes(*bytes, u"standard input"_s, options);
    } else {
        read = ReadIrCodePath(in, options);
    }
    for (const QString& note : read.refused)
        complain(u"left out: "_s + note);
    if (!read.ok()) {
        complain(read.error);
        return 1;
    }
    QString error;
    if (!intoDirectory) {
        if (IrFormatIsSingle(*to) && read.codes.size() > 1) {
            complain(in + u" holds %1 signals and %2 holds one per file: give a directory as OUT"_s
                              .arg(read.codes.size())
                              .arg(IrFormatName(*to)));
            return 1;
        }
        const QByteArray bytes = WriteIrCodes(*to, read.codes, &error, options);
        if (bytes.isEmpty())
            error = out + u": "_s + error;
        if (bytes.isEmpty() || !writeOut(out, bytes, &error)) {
            complain(error);
            return 1;
        }
        print(u"wrote %1 signal(s) to %2 as %3\n"_s.arg(read.codes.size())
                  .arg(out, IrFormatName(*to)));
        return 0;
    }
    // One file per signal; every one is made before any is written.
    std::vector<std::pair<QString, QByteArray>> files;
    QSet<QString> taken;
    for (const NamedSignal& code : read.codes) {
        QByteArray bytes = WriteIrCodes(*to, {code}, &error, options);
        if (bytes.isEmpty()) {
            complain(code.name + u": "_s + error);
            return 1;
        }
        // Names as file names by the program's one rule, so that no name
        // (":", "..", "a/b") writes outside OUT.
        QString base = FileNameOf(QStringView(code.group.isEmpty() || read.codes.size() < 2
                                                  ? code.name
                                                  : code.group + u"-"_s + code.name)
                                      .left(100));
        QString name = base + u"."_s + IrFormatExtension(*to);
        for (int n = 2; taken.contains(name); ++n)
            name = base + u"-"_s + QString::number(n) + u"."_s + IrFormatExtension(*to);
        taken.insert(name);
        files.emplace_back(QDir(out).filePath(name), std::move(bytes));
    }
    if (!QDir().mkpath(out)) {
        complain(out + u": cannot be made as a directory"_s);
        return 1;
    }
    for (const auto& [path, bytes] : files)
        if (!WriteFileAtomically(path, bytes, 0644, &error)) {
            complain(error);
            return 1;
        }
    print(u"wrote %1 file(s) into %2 as %3\n"_s.arg(files.size()).arg(out, IrFormatName(*to)));
    return 0;
}

// The seconds of a capture: a whole number 1 to 600, or nothing.
std::optional<int> secondsOf(const QString& text) {
    bool ok = false;
    const int n = text.toInt(&ok);
    return ok && n >= 1 && n <= 600 ? std::optional<int>(n) : std::nullopt;
}

int run(const QStringList& args) {
    const QString cmd = args.value(0);
    const qsizetype n = args.size();
    if (cmd == u"list" && (n == 1 || (n == 2 && args[1] == u"--json")))
        return list(n == 2);
    if (cmd == u"show" && n == 2)
        return show(args[1], ShowAs::Text);
    if (cmd == u"show" && n == 3 && (args[2] == u"--mode2" || args[2] == u"--json"))
        return show(args[1], args[2] == u"--json" ? ShowAs::Json : ShowAs::Mode2);
    if (cmd == u"encode" && n == 3)
        return encode(args[1], args[2]);
    if (cmd == u"capture" && (n == 3 || n == 4)) {
        const auto seconds = n == 4 ? secondsOf(args[3]) : std::optional<int>(11);
        if (!seconds) {
            complain(u"'%1' is not a number of seconds (1 to 600)"_s.arg(args[3]));
            return 2;
        }
        return capture(args[1], args[2], *seconds);
    }
    if (cmd == u"convert")
        return convert(args.mid(1));
    if (cmd == u"climate" && n == 2 && args[1] == u"--list")
        return climateList();
    if (cmd == u"climate")
        return climate(args.mid(1));
    if (cmd == u"send" && n == 3)
        return send(args[1], args[2]);
    if (n == 1 && cmd == u"--version") {
        std::printf("kestrava-ir %s\n", KESTRAVA_VERSION);
        return 0;
    }
    if (commandNamed(cmd))
        complain(u"wrong arguments for '"_s + cmd + u"' (see: kestrava-ir "_s + cmd +
                 u" --help)"_s);
    else if (!cmd.isEmpty())
        complain(u"unknown command '"_s + cmd + u"'"_s);
    std::fputs(usage(nullptr).constData(), stderr);
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    InstallLogHandler(false, "kestrava-ir");
    const QStringList args = app.arguments().mid(1);
    const QString cmd = args.value(0);
    // Help anywhere: of the command when one is named, else of them all.
    const bool help = cmd == u"help" || args.contains(u"--help"_s) || args.contains(u"-h"_s);
    if (help) {
        const Command* c = commandNamed(cmd == u"help" ? args.value(1) : cmd);
        std::fputs(usage(c).constData(), stdout);
        return 0;
    }
    return run(args);
}
