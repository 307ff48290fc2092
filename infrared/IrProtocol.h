#pragma once

#include "infrared/IrSignal.h"

#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <cstdint>
#include <optional>
#include <vector>

// The remote-control protocols a signal is recognised as. Where Linux's rc-core
// has the protocol, name and scancode are the kernel's, so that a code moves
// between us and ir-ctl / ir-keytable unchanged.
enum class IrProtocol : uint8_t {
    Raw, // none of the below
    Nec,
    Necx,
    Nec32,
    Samsung32, // NEC-like with a 4.5 ms leader; address byte sent twice
    Sony12,
    Sony15,
    Sony20,
    Rc5,
    Rc5x20,
    Rc6_0,
    Rc6_6a20,
    Rc6_6a24,
    Rc6_6a32,
    Rc6Mce,
    Jvc,
    Sharp,
    Sanyo,
    Aeha,       // Japanese appliance format; Panasonic/Kaseikyo is maker 0x2002
    Pioneer,    // NEC's frame at 40 kHz: D<<16|S<<8|F; a second frame in frames
    Proton,     // D<<8|F
    Rca,        // D<<8|F, 58 kHz
    Rca38,      // D<<8|F, 38.7 kHz
    Samsung36,  // D<<24|S<<16|E<<8|F
    GiCable,    // D<<8|F
    Denon,      // Sharp's frame with other check bits: address<<8|command
    Denon1,     // Denon's first half alone (DecodeIR's Denon{1})
    Denon2,     // its second, inverted half alone (Denon{2}); command as sent first
    Mitsubishi, // address<<8|command
    Recs80,     // address<<8|command, the toggle apart
    Dish,       // Dish Network: device<<16|subdevice<<8|function
    DirecTv,    // device<<8|function; the check nibble is computed
    RcMm12,     // the kernel's rc-mm-12, -24 and -32: the bits as sent,
    RcMm24,     //   rc_mm_32 without its toggle bit 0x8000
    RcMm32,
};

// A decoded signal.
//  scancode: as `ir-ctl -S name:SCANCODE` takes it and `ir-keytable -t` prints
//    it (necx 0xAAaaCC, nec32 0xaaAAccCC, sony device<<16|subdevice<<8|function,
//    rc5x_20 system<<16|command<<8|extra, rc6_mce without its toggle bit 0x8000).
//    samsung32 (no kernel name) is address<<8|command.
//  bytes: aeha only, every byte of the frame as sent (maker code first); a
//    message of several different frames (air conditioners) is in frames.
struct IrCode {
    IrProtocol protocol = IrProtocol::Raw;
    uint32_t scancode = 0;
    bool toggle = false;                      // where HasToggle
    std::vector<std::vector<uint8_t>> frames; // aeha; pioneer's second frame (D, S, F)
    // The signal went on after the first frame with repeats of it (the
    // protocol's repeat frame or the frame again): a held key.
    bool repeats = false;

    bool decoded() const { return protocol != IrProtocol::Raw; }
    bool operator==(const IrCode&) const = default;
};

// "nec", "rc6_mce", "samsung32", "aeha", "raw".
QString ProtocolName(IrProtocol protocol);
// Every protocol of the table but raw, in the enum's order.
std::vector<IrProtocol> KnownProtocols();
std::optional<IrProtocol> ProtocolFromName(QStringView name); // case-insensitive
// NEC 38 kHz, Sony 40 kHz, RC5/RC6 36 kHz, AEHA 37 kHz...; 0 for raw.
int ProtocolCarrierHz(IrProtocol protocol);
// Highest scancode the protocol has room for; 0 for aeha and raw.
uint32_t ProtocolScancodeMask(IrProtocol protocol);
// The protocol's frames carry a bit (IrCode::toggle) that the remote flips at
// every press, so that a device tells two presses from one held key.
bool HasToggle(IrProtocol protocol);

// The protocol's own fields, as far as it has them.
struct IrCodeFields {
    std::optional<uint32_t>
        address; // nec*/samsung/jvc/sanyo/sharp address, sony device, rc5/rc6 system
    std::optional<uint32_t> command;   // command, sony function
    std::optional<uint32_t> subdevice; // sony20
    std::optional<uint32_t> extra;     // rc5x_20's six extra bits
    std::optional<uint16_t> maker;     // aeha, from the first frame
};
IrCodeFields FieldsOf(const IrCode& code);

// A code in the IR databases' convention (DecodeIR, IrScrutinizer, irdb):
// their protocol name and its parameters, -1 where the protocol has none.
struct IrpCode {
    QString protocol; // "NEC1", "Sony12", "RC5", "G.I. Cable"...
    int64_t D = -1, S = -1, F = -1;
    int64_t E = -1;         // NEC1-f16's second command byte, Kaseikyo's extra nibble...
    int64_t M = -1, N = -1; // Kaseikyo's maker bytes
    int64_t X = -1;         // Nokia32's 7 bits beside its toggle
    bool operator==(const IrpCode&) const = default;
};
// Nothing for raw and for codes no IRP protocol describes.
std::optional<IrpCode> IrpOf(const IrCode& code);
// Nothing, with why, for a name we do not know or values it cannot hold.
std::optional<IrCode> CodeFromIrp(const IrpCode& irp, QString* why = nullptr);
// "NEC1:4,251,8"; "RC5:0,12" when there is no S; E, M, N, X as E=, M=, N=, X=.
QString IrpSpec(const IrpCode& irp);
// {"protocol", "D", "S", "F"} (null where the protocol has none; E, M, N
// only where it has them); null when IrpOf has nothing.
QJsonValue IrpJson(const IrCode& code);
// The IRP protocol names CodeFromIrp takes, for messages.
QStringList IrpProtocolNames();

// Recognises a signal (pulse/space/... µs, repeats included). Durations are
// judged against the protocol's time unit as measured on the signal, each
// within ±25 %. Anything not wholly one protocol's frames is raw.
IrCode DecodeSignal(const IrTiming& timing);

// The protocol's exact timings and carrier for a code, ending with the pause
// after the frame; a code whose repeats flag is set also gets the repeating
// part (NEC's repeat frame, or the frame again). Nothing for raw, a scancode
// beyond the protocol's room or aeha without a frame.
std::optional<IrTiming> EncodeSignal(const IrCode& code);

// "nec:0x0408", "aeha:0x022080003dbc" (frames' bytes in hex, joined by ','),
// "pioneer:0xaf50bc+0xa55a1c" (a key of two frames).
QString CodeSpec(const IrCode& code);
// The reverse; the scancode may be decimal or 0x-hex. Also takes the IR
// databases' PROTOCOL:D,S,F (D,F where there is no S; E=, M=, N= by name).
// Nothing, with why, when the text is not one.
std::optional<IrCode> ParseCodeSpec(QStringView text, QString* why = nullptr);
// "NEC 0x0408", "Sony12 0x010015", "AEHA 2002 80003DBC"; "raw" when raw.
QString CodeDisplay(const IrCode& code);
