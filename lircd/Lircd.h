#pragma once

#include "infrared/Climate.h"
#include "infrared/IrProtocol.h"
#include "infrared/SignalCodeCache.h"
#include "lircd/LircdCommand.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class ClimateUnits;
class Scenes;
class ProgramFolder;
class QHostAddress;
class QIODevice;
class QLocalServer;
class QTcpServer;
class SettingsStore;
class Transceiver;

// Kestrava as lircd: the socket Kodi, irexec, irw, irsend and the rest of
// LIRC's clients talk to, on a path ([Lircd] Socket) and, for the home network
// only, on a TCP port ([Lircd] Port) as lircd's --listen. Sends take the same
// queue as every front; learned keys heard are written to every client.
class Lircd : public QObject {
    Q_OBJECT
public:
    Lircd(const ProgramFolder& folder, SettingsStore& settings, Transceiver& device,
          QObject* parent = nullptr);
    ~Lircd() override;

    // Reads [Lircd] and listens where it says.
    void Start();
    // Stops listening, ends every connection and removes the socket file.
    void Close();
    // Whether the settings ask for a socket or a port: the listener then hears.
    bool wanted() const;

    QString socketPath() const;
    quint16 port() const;
    int clients() const { return int(clients_.size()); }

    // Each air conditioner is a remote named by its id, its keys states
    // ("off", "cool_26_auto"); set before Start.
    void SetClimates(ClimateUnits* units);

    // The scenes are one remote, "scenes", a key each by its name; SEND_ONCE
    // runs it. Set before Start.
    void SetScenes(Scenes* scenes);
    static constexpr const char* ScenesRemote = "scenes";
    // The program's cache of what signal files decode as, instead of one of its own.
    void UseCodes(SignalCodeCache& codes) { codes_ = &codes; }

    // A learned key heard, its repeats counted from 0.
    void KeyHeard(const IrCode& code, int repeat, const QString& remote, const QString& key);

    // Which TCP clients are at home, as for the web server; the others are
    // turned away. Tests fake an outside client with it.
    std::function<bool(const QHostAddress&)> atHome;
    // How long a held key (SEND_START) repeats at most without SEND_STOP.
    int holdLimitMs = 10000;
    // What a client may leave unread before it is dropped.
    static constexpr qint64 MaxUnread = 256 * 1024;

private:
    struct Client {
        QIODevice* io = nullptr;
        QByteArray in;
        bool waiting = false; // its last command's send is not over yet
    };
    struct Held {
        QString path;
        QString remote, key;
        QPointer<QIODevice> starter; // answered once the first send is out
        QByteArray line;
        bool answered = false;
        bool stopped = false;
        int id = 0; // the transceiver's
    };
    void accepted(QIODevice* io);
    void readable(QIODevice* io);
    void handle(Client& client, const QByteArray& line);
    // again: a repeat of the send before, not a new press.
    void sendTimes(QPointer<QIODevice> io, QByteArray line, QString remote, QString key, int left,
                   bool again = false);
    void startHold();
    void answer(QIODevice* io, const QByteArray& reply);
    void finish(QIODevice* io);
    Client* clientOf(QIODevice* io);
    const LircdCatalog& catalog();
    bool openSocket(const QString& path);
    void sendClimate(Client& client, const QByteArray& line, const LircdRemote& remote,
                     const LircdKey& key);
    void runScene(Client& client, const QByteArray& line, const LircdRequest& request);

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    Transceiver& device_;
    std::unique_ptr<QLocalServer> local_;
    std::unique_ptr<QTcpServer> tcp_;
    QString socketPath_;
    std::vector<Client> clients_;
    std::unique_ptr<Held> held_;
    LircdCatalog catalog_;
    QByteArray catalogStamp_;
    SignalCodeCache ownCodes_;
    SignalCodeCache* codes_ = &ownCodes_;
    ClimateUnits* climates_ = nullptr;
    Scenes* scenes_ = nullptr;
};

// The keys an air conditioner shows on the socket: "off", then
// mode_temperature_fan ("cool_26_auto", "dry_auto" where the mode ignores the
// temperature) for what its caps hold, at most max of them.
QStringList LircdClimateKeys(const ClimateCaps& caps, int max = 400);
// The state a key names, taken over onto the unit's state; nothing when the
// name is no such key.
std::optional<ClimateState> LircdClimateState(QStringView key, ClimateState base);
