#include "lircd/Lircd.h"

#include "climate/ClimateUnits.h"
#include "core/NetAddress.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "infrared/SignalStore.h"
#include "infrared/Transceiver.h"
#include "remotes/Registry.h"
#include "scenes/Scenes.h"

#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLoggingCategory>
#include <QTcpServer>
#include <QTcpSocket>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcLircd, "kestrava.lircd")

// What is at a socket path: nothing, a socket nobody serves (left by a
// program that ended without removing it), a live one, or something else.
enum class PathState { Free, Stale, Live, NotSocket };
PathState StateOf(const QByteArray& path) {
    struct stat st {};
    if (::lstat(path.constData(), &st) != 0)
        return PathState::Free;
    if (!S_ISSOCK(st.st_mode))
        return PathState::NotSocket;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (size_t(path.size()) >= sizeof addr.sun_path)
        return PathState::NotSocket;
    std::memcpy(addr.sun_path, path.constData(), size_t(path.size()));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return PathState::Live;
    const int rc = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    const int error = errno;
    ::close(fd);
    return rc == 0 || error != ECONNREFUSED ? PathState::Live : PathState::Stale;
}
} // namespace

Lircd::Lircd(const ProgramFolder& folder, SettingsStore& settings, Transceiver& device,
             QObject* parent)
    : QObject(parent), atHome(IsPrivateAddress), folder_(folder), settings_(settings),
      device_(device) {}

Lircd::~Lircd() {
    Close();
}

bool Lircd::wanted() const {
    return !settings_.Read(Key::LircdSocket).trimmed().isEmpty() ||
           !settings_.Read(Key::LircdPort).trimmed().isEmpty();
}

QString Lircd::socketPath() const {
    return local_ ? socketPath_ : QString();
}

quint16 Lircd::port() const {
    return tcp_ ? tcp_->serverPort() : 0;
}

void Lircd::Start() {
    Close();
    const QString socket = settings_.Read(Key::LircdSocket).trimmed();
    if (!socket.isEmpty())
        openSocket(QDir(folder_.root()).absoluteFilePath(socket));
    const QString portText = settings_.Read(Key::LircdPort).trimmed();
    if (portText.isEmpty())
        return;
    bool ok = false;
    const uint port = portText.toUInt(&ok);
    if (!ok || port == 0 || port > 65535) {
        qCWarning(lcLircd).noquote() << "[Lircd] Port is not a port number:" << portText;
        return;
    }
    tcp_ = std::make_unique<QTcpServer>();
    if (!tcp_->listen(QHostAddress::Any, quint16(port))) {
        qCWarning(lcLircd).noquote()
            << "cannot listen on TCP port" << port << "-" << tcp_->errorString();
        tcp_.reset();
        return;
    }
    connect(tcp_.get(), &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* s = tcp_->nextPendingConnection()) {
            // Like the web server's home network: never served from outside.
            if (!atHome || !atHome(s->peerAddress())) {
                qCInfo(lcLircd).noquote()
                    << "refused a client from outside:" << s->peerAddress().toString();
                s->abort();
                s->deleteLater();
                continue;
            }
            connect(s, &QTcpSocket::disconnected, this, [this, s] { finish(s); });
            s->setReadBufferSize(8 * LircdMaxLine);
            accepted(s);
        }
    });
    qCInfo(lcLircd) << "lircd clients of the home network are served on TCP port" << port;
}

bool Lircd::openSocket(const QString& path) {
    const QByteArray native = QFile::encodeName(path);
    switch (StateOf(native)) {
    case PathState::Live:
        qCWarning(lcLircd).noquote() << "another program serves" << path << "- lircd socket off";
        return false;
    case PathState::NotSocket:
        qCWarning(lcLircd).noquote()
            << path << "is not a socket (or too long a path); left alone, lircd socket off";
        return false;
    case PathState::Stale:
        ::unlink(native.constData());
        break;
    case PathState::Free:
        break;
    }
    local_ = std::make_unique<QLocalServer>();
    // Any local user's client may connect, as to lircd's own socket.
    local_->setSocketOptions(QLocalServer::WorldAccessOption);
    if (!local_->listen(path)) {
        qCWarning(lcLircd).noquote()
            << "cannot make the lircd socket" << path << "-" << local_->errorString();
        local_.reset();
        return false;
    }
    socketPath_ = path;
    connect(local_.get(), &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* s = local_->nextPendingConnection()) {
            connect(s, &QLocalSocket::disconnected, this, [this, s] { finish(s); });
            s->setReadBufferSize(8 * LircdMaxLine);
            accepted(s);
        }
    });
    qCInfo(lcLircd).noquote() << "lircd socket at" << path;
    return true;
}

void Lircd::Close() {
    while (!clients_.empty())
        finish(clients_.back().io);
    if (local_) {
        local_->close(); // removes the file
        local_.reset();
    }
    tcp_.reset();
    if (held_)
        held_->stopped = true;
}

void Lircd::accepted(QIODevice* io) {
    clients_.push_back({io, {}, false});
    connect(io, &QIODevice::readyRead, this, [this, io] { readable(io); });
}

Lircd::Client* Lircd::clientOf(QIODevice* io) {
    for (Client& c : clients_)
        if (c.io == io)
            return &c;
    return nullptr;
}

void Lircd::finish(QIODevice* io) {
    const auto it = std::find_if(clients_.begin(), clients_.end(),
                                 [io](const Client& c) { return c.io == io; });
    if (it == clients_.end())
        return;
    clients_.erase(it);
    if (held_ && held_->starter == io && !held_->answered)
        device_.StopHold(held_->id, Transceiver::HoldEnd::Lost);
    disconnect(io, nullptr, this, nullptr);
    if (auto* s = qobject_cast<QLocalSocket*>(io))
        s->abort();
    else if (auto* t = qobject_cast<QTcpSocket*>(io))
        t->abort();
    io->deleteLater();
}

void Lircd::readable(QIODevice* io) {
    for (;;) {
        Client* c = clientOf(io);
        if (!c)
            return;
        if (c->in.size() < 8 * LircdMaxLine)
            c->in += io->read(8 * LircdMaxLine - c->in.size());
        if (c->waiting)
            return; // read on when its send is over
        const qsizetype end = c->in.indexOf('\n');
        if (end < 0 ? c->in.size() > LircdMaxLine : end > LircdMaxLine) {
            qCInfo(lcLircd) << "dropped a client that wrote a line too long";
            return finish(io);
        }
        if (end < 0) {
            if (io->bytesAvailable() == 0)
                return;
            continue;
        }
        const QByteArray line = c->in.left(end);
        c->in.remove(0, end + 1);
        handle(*c, line);
    }
}

void Lircd::answer(QIODevice* io, const QByteArray& reply) {
    if (!io || !clientOf(io))
        return;
    // A client that does not read is not waited for.
    if (io->bytesToWrite() + reply.size() > MaxUnread) {
        qCInfo(lcLircd) << "dropped a client that does not read";
        return finish(io);
    }
    io->write(reply);
}

void Lircd::handle(Client& client, const QByteArray& line) {
    QIODevice* io = client.io;
    const LircdRequest r = ParseLircdCommand(line, catalog());
    if (r.remote && !r.remote->climate.isEmpty() && r.kind != LircdRequest::Kind::Reply) {
        if (r.kind != LircdRequest::Kind::SendOnce)
            return answer(io, LircdError(line, "an air conditioner's keys are sent once"));
        return sendClimate(client, line, *r.remote, *r.key);
    }
    if (r.remote && r.remote->scenes && r.kind != LircdRequest::Kind::Reply)
        return runScene(client, line, r);
    switch (r.kind) {
    case LircdRequest::Kind::Reply:
        return answer(io, r.reply);
    case LircdRequest::Kind::SendOnce: // behind a held key, as every press
        client.waiting = true;
        return sendTimes(io, line, r.remote->name, r.key->name, r.times);
    case LircdRequest::Kind::SendStart:
        if (held_)
            return answer(io, LircdError(line, "already repeating"));
        held_ = std::make_unique<Held>(Held{SignalFilePath(folder_, r.remote->name, r.key->name),
                                            r.remote->name, r.key->name, io, line});
        client.waiting = true;
        return startHold();
    case LircdRequest::Kind::SendStop:
        if (!held_ || held_->stopped)
            return answer(io, LircdError(line, "not repeating"));
        if (r.remote && r.remote->name != held_->remote)
            return answer(io, LircdError(line, "specified remote does not match"));
        if (r.key && r.key->name != held_->key)
            return answer(io, LircdError(line, "specified code does not match"));
        held_->stopped = true;
        if (IsTestMode(settings_)) // no send under way to end it
            held_.reset();
        else
            device_.StopHold(held_->id);
        return answer(io, LircdSuccess(line));
    }
}

// The client's next command waits until this one is answered, as with lircd.
void Lircd::sendTimes(QPointer<QIODevice> io, QByteArray line, QString remote, QString key,
                      int left, bool again) {
    const auto done = [this, io, line](const QByteArray& reply) {
        answer(io, reply);
        if (Client* c = io ? clientOf(io) : nullptr) {
            c->waiting = false;
            QMetaObject::invokeMethod(
                this, [this, io] { io ? readable(io) : void(); }, Qt::QueuedConnection);
        }
    };
    // As on the pages: test mode sends nothing.
    if (IsTestMode(settings_))
        return done(LircdSuccess(line));
    const QString path = SignalFilePath(folder_, remote, key);
    QPointer<Lircd> self(this);
    device_.Enqueue(path,
                    [self, done, io, line, remote, key, left](SendResult result) {
                        if (!self)
                            return;
                        if (result != SendResult::Sent)
                            return done(LircdError(line, "transmission failed"));
                        if (left > 1)
                            return self->sendTimes(io, line, remote, key, left - 1, true);
                        done(LircdSuccess(line));
                    },
                    {u"lircd"_s, remote, key, again});
}

// A state key sets the state: the whole frame goes out once.
void Lircd::sendClimate(Client& client, const QByteArray& line, const LircdRemote& remote,
                        const LircdKey& key) {
    const auto unit = climates_ ? climates_->unit(remote.climate) : std::nullopt;
    const auto state = unit ? LircdClimateState(key.name, unit->state) : std::nullopt;
    if (!state)
        return answer(client.io,
                      LircdError(line, "unknown command: \"" + LircdName(key.name) + '"'));
    QPointer<QIODevice> io = client.io;
    if (IsTestMode(settings_))
        return answer(io, LircdSuccess(line));
    client.waiting = true;
    QPointer<Lircd> self(this);
    climates_->setState(
        remote.climate, *state,
        [self, io, line](const ClimateUnits::Outcome& o) {
            if (!self)
                return;
            self->answer(io, o.sent ? LircdSuccess(line)
                                    : LircdError(line, o.result ? QByteArray("transmission failed")
                                                                : o.message.toUtf8()));
            if (Client* c = io ? self->clientOf(io) : nullptr) {
                c->waiting = false;
                QMetaObject::invokeMethod(
                    self.data(), [self, io] { self&& io ? self->readable(io) : void(); },
                    Qt::QueuedConnection);
            }
        },
        {u"lircd"_s, {}, {}});
}

// A scene runs whole, once, behind any scene running; the answer comes when it has ended.
void Lircd::runScene(Client& client, const QByteArray& line, const LircdRequest& r) {
    if (r.kind != LircdRequest::Kind::SendOnce)
        return answer(client.io, LircdError(line, "a scene is run once"));
    const auto scene = scenes_ ? scenes_->scene(int(r.key->code)) : std::nullopt;
    if (!scene)
        return answer(client.io,
                      LircdError(line, "unknown command: \"" + LircdName(r.key->name) + '"'));
    QPointer<QIODevice> io = client.io;
    client.waiting = true;
    QPointer<Lircd> self(this);
    scenes_->run(
        scene->id,
        [self, io, line](const SceneOutcome& o) {
            if (!self)
                return;
            // One line of data: a reason that spans lines is joined.
            self->answer(io, o.done ? LircdSuccess(line)
                                    : LircdError(line, o.why.simplified().toUtf8()));
            if (Client* c = io ? self->clientOf(io) : nullptr) {
                c->waiting = false;
                QMetaObject::invokeMethod(
                    self.data(), [self, io] { self&& io ? self->readable(io) : void(); },
                    Qt::QueuedConnection);
            }
        },
        u"lircd"_s);
}

void Lircd::SetScenes(Scenes* scenes) {
    scenes_ = scenes;
    if (scenes)
        connect(scenes, &Scenes::scenesChanged, this, [this] { catalogStamp_.clear(); });
}

void Lircd::SetClimates(ClimateUnits* units) {
    climates_ = units;
    if (units)
        connect(units, &ClimateUnits::unitsChanged, this, [this] { catalogStamp_.clear(); });
}

QStringList LircdClimateKeys(const ClimateCaps& caps, int max) {
    QStringList keys{u"off"_s};
    for (ClimateMode mode : caps.modes) {
        const bool temperature = caps.usesTemperature(mode);
        const int steps = temperature && caps.step > 0
                              ? int(std::floor((caps.maxTemp - caps.minTemp) / caps.step + 1e-6))
                              : 0;
        for (int i = 0; i <= steps; ++i)
            for (const QString& fan : caps.fans) {
                if (keys.size() >= max)
                    return keys;
                const QString t = QString::number(caps.minTemp + i * caps.step);
                keys << ClimateModeName(mode) + u'_' + (temperature ? t + u'_' : QString()) + fan;
            }
    }
    return keys;
}

std::optional<ClimateState> LircdClimateState(QStringView key, ClimateState base) {
    if (key.compare(u"off", Qt::CaseInsensitive) == 0) {
        base.power = false;
        return base;
    }
    const qsizetype cut = key.indexOf(u'_');
    const auto mode = cut > 0 ? ClimateModeFromName(key.left(cut)) : std::nullopt;
    if (!mode)
        return std::nullopt;
    QStringView rest = key.mid(cut + 1);
    const qsizetype next = rest.indexOf(u'_');
    bool number = false;
    const double t = next > 0 ? rest.left(next).toDouble(&number) : 0;
    if (number) {
        base.temperature = t;
        rest = rest.mid(next + 1);
    }
    if (rest.isEmpty())
        return std::nullopt;
    base.power = true;
    base.mode = *mode;
    base.fan = rest.toString();
    return base;
}

// A held key: its first frame, then its repeat frames at the protocol's
// period until SEND_STOP or the limit. The start is answered once the first
// frame is out. A client gone before that takes its hold with it; irsend's
// SEND_START leaves right after its answer, so a hold outlives that.
void Lircd::startHold() {
    Held& h = *held_;
    const Held* mine = &h;
    const auto answerStarter = [this, mine](const QByteArray& reply) {
        if (held_.get() != mine)
            return;
        held_->answered = true;
        QPointer<QIODevice> io = held_->starter;
        answer(io, reply);
        if (Client* c = io ? clientOf(io) : nullptr) {
            c->waiting = false;
            QMetaObject::invokeMethod(
                this, [this, io] { io ? readable(io) : void(); }, Qt::QueuedConnection);
        }
    };
    if (IsTestMode(settings_)) {
        answerStarter(LircdSuccess(h.line));
        QTimer::singleShot(holdLimitMs, this, [this, mine] {
            if (held_.get() == mine)
                held_.reset();
        });
        return;
    }
    QPointer<Lircd> self(this);
    const QByteArray line = h.line;
    const int id = device_.StartHold(
        h.path, {u"lircd"_s, h.remote, h.key},
        [self, mine](const Transceiver::HoldOutcome&) {
            if (self && self->held_.get() == mine)
                self->held_.reset();
        },
        [self, answerStarter, line](SendResult result) {
            if (self)
                answerStarter(result == SendResult::Sent ? LircdSuccess(line)
                                                         : LircdError(line, "transmission failed"));
        });
    if (held_.get() == mine) // not refused at once
        held_->id = id;
}

void Lircd::KeyHeard(const IrCode& code, int repeat, const QString& remote, const QString& key) {
    if (clients_.empty())
        return;
    const QByteArray line = LircdKeyLine(code.decoded() ? code.scancode : 0, repeat, key, remote);
    std::vector<QIODevice*> all;
    for (const Client& c : clients_)
        all.push_back(c.io);
    for (QIODevice* io : all)
        answer(io, line);
}

// Read again whenever setting.ini or the signal folder has changed since.
const LircdCatalog& Lircd::catalog() {
    const QByteArray stamp = RegistryStamp(settings_, folder_);
    if (stamp == catalogStamp_)
        return catalog_;
    catalogStamp_ = stamp;
    catalog_.clear();
    SettingsStore::Batch batch(settings_);
    for (int slot = 1; slot <= MaxListedRemoteId; ++slot) {
        const QString name = settings_.Read(Key::RemoteName(slot));
        if (name.isEmpty())
            continue;
        LircdRemote remote{name, {}};
        for (const QString& key : ReadRemoteButtons(settings_, slot)) {
            const QString path = SignalFilePath(folder_, name, key);
            if (key.isEmpty() || !QFileInfo::exists(path))
                continue;
            const IrCode code = codes_->codeOf(path);
            remote.keys.push_back({key, code.decoded() ? code.scancode : 0});
        }
        catalog_.push_back(std::move(remote));
    }
    if (climates_)
        for (const ClimateUnit& unit : climates_->units()) {
            LircdRemote remote{unit.id, {}, unit.id};
            for (const QString& key : LircdClimateKeys(unit.caps)) {
                const auto state = LircdClimateState(key, unit.state);
                // A table lists only the states it has codes for.
                if (unit.family.isEmpty() && !(state && climates_->signalFor(unit.id, *state)))
                    continue;
                remote.keys.push_back({key, 0});
            }
            catalog_.push_back(std::move(remote));
        }
    if (scenes_ && !scenes_->scenes().empty()) {
        LircdRemote remote{QString::fromLatin1(ScenesRemote), {}, {}, true};
        for (const Scene& scene : scenes_->scenes())
            remote.keys.push_back({scene.name, quint64(scene.id)});
        catalog_.push_back(std::move(remote));
    }
    return catalog_;
}
