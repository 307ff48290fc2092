// The usage texts: all of them, or one command's.
#include "tools/kestrava-ir/Tool.h"

namespace irtool {

// Each command's synopsis and what it does; the whole usage is all of them.
struct Command {
    const char* name;
    const char* help;
    bool device; // takes a DEVICE
};

namespace {

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

} // namespace

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

} // namespace irtool
