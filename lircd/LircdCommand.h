#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringView>

#include <vector>

// The command side of lircd's socket protocol: a client writes one command a
// line ("SEND_ONCE tv power"), and gets
//   BEGIN / <the line> / SUCCESS or ERROR / [DATA / <n> / n lines] / END
// back. Names are ours in UTF-8; lircd's names have no spaces, so any white
// space in one of ours reads as "_" on the socket.

struct LircdKey {
    QString name;     // as the registry holds it
    quint64 code = 0; // the decoded scancode, 0 for a raw key
};
struct LircdRemote {
    QString name;
    std::vector<LircdKey> keys; // learned ones only
    QString climate = {};       // an air conditioner's id: its keys are states
    bool scenes = false;        // the scenes: its keys are their names, codes their ids
};
using LircdCatalog = std::vector<LircdRemote>;

// lircd's limit on the count of SEND_ONCE (its --repeat-max default).
constexpr int LircdMaxRepeats = 600;
// The longest command line a client may write; longer ones end the connection.
constexpr int LircdMaxLine = 512;

struct LircdRequest {
    enum class Kind { Reply, SendOnce, SendStart, SendStop };
    Kind kind = Kind::Reply;
    QByteArray reply; // Kind::Reply: the whole answer
    // The key to send (SendStop: the one named, either may be null).
    const LircdRemote* remote = nullptr;
    const LircdKey* key = nullptr;
    int times = 1; // SendOnce: how many times it goes out
};

// One line as read, without its "\n". LIST and VERSION and every malformed or
// unknown command are answered here; sends are left to the caller.
LircdRequest ParseLircdCommand(QByteArrayView line, const LircdCatalog& catalog);

// The answers, with the line echoed as lircd does.
QByteArray LircdSuccess(QByteArrayView line, const QList<QByteArray>& data = {});
QByteArray LircdError(QByteArrayView line, QByteArrayView message);

// A name as it goes on the socket: UTF-8, white space as "_".
QByteArray LircdName(QStringView name);

// What listeners read when a learned key is heard: "<code> <repeat> <key> <remote>\n".
QByteArray LircdKeyLine(quint64 code, int repeat, QStringView key, QStringView remote);
