#include "api/RemotesApi.h"

#include "api/ApiReply.h"
#include "core/NameText.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "learning/LearningStore.h"
#include "remotes/Registry.h"
#include "reservations/ReserveStore.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;
using namespace Api;

namespace {

Q_LOGGING_CATEGORY(lcRemotes, "kestrava.api")

// A JSON string as QJsonDocument writes it, so answers read the same.
void appendString(QByteArray& out, QStringView text) {
    out += '"';
    const QByteArray utf8 = text.toUtf8();
    for (const char c : utf8) {
        const auto u = uchar(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u >= 0x20) {
            out += c;
        } else if (c == '\b') {
            out += "\\b";
        } else if (c == '\f') {
            out += "\\f";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else {
            out += "\\u00";
            out += "0123456789abcdef"[u >> 4];
            out += "0123456789abcdef"[u & 15];
        }
    }
    out += '"';
}

QByteArray stringJson(QStringView text) {
    QByteArray out;
    appendString(out, text);
    return out;
}

QByteArray irpJson(const IrCode& code) {
    const auto irp = IrpOf(code);
    if (!irp)
        return "null";
    // Keys in QJsonObject's order; D, S and F are null where the protocol has none.
    QByteArray out = "{";
    const auto field = [&](const char* name, int64_t v, bool always) {
        if (v < 0 && !always)
            return;
        out += '"';
        out += name;
        out += "\":";
        out += v < 0 ? QByteArray("null") : QByteArray::number(qint64(v));
        out += ',';
    };
    field("D", irp->D, true);
    field("E", irp->E, false);
    field("F", irp->F, true);
    field("M", irp->M, false);
    field("N", irp->N, false);
    field("S", irp->S, true);
    field("X", irp->X, false);
    out += "\"protocol\":";
    appendString(out, irp->protocol);
    out += '}';
    return out;
}

// A name from the body: text, learnable, not empty. "" with the reply sent otherwise.
QString nameFrom(const QJsonObject& body, const QString& field, bool required, bool* refused,
                 const std::function<void(const QString&)>& bad) {
    const QJsonValue v = body.value(field);
    if (v.isUndefined() && !required)
        return {};
    const QString name = v.toString().trimmed();
    QString problem;
    if (!v.isString() || name.isEmpty())
        problem = u"%1 に名前を入れてください。"_s.arg(field);
    else if (name.size() > Reserve::MaxNameLength)
        problem = u"名前が長すぎます。"_s;
    else // as sent: a TAB or line end at either end is no blank to trim
        problem = LearnedNameProblem(v.toString());
    if (problem.isEmpty())
        return name;
    *refused = true;
    bad(problem);
    return {};
}

// Moves signal files to new names; on a failure, back to where they were.
bool moveFiles(const std::vector<std::pair<QString, QString>>& moves) {
    std::vector<std::pair<QString, QString>> done;
    for (const auto& [from, to] : moves) {
        if (from == to || !QFileInfo::exists(from))
            continue;
        QFile::remove(to);
        // A rename keeps the file's identity, and with it its known code.
        if (!QFile::rename(from, to)) {
            for (auto it = done.rbegin(); it != done.rend(); ++it)
                QFile::rename(it->second, it->first);
            return false;
        }
        done.emplace_back(from, to);
    }
    return true;
}

void moveBack(const std::vector<std::pair<QString, QString>>& moves) {
    for (const auto& [from, to] : moves)
        if (from != to && QFileInfo::exists(to))
            QFile::rename(to, from);
}

} // namespace

RemotesApi::RemotesApi(const ProgramFolder& folder, SettingsStore& settings)
    : folder_(folder), settings_(settings) {}

const RemotesApi::CodeText& RemotesApi::textOf(const IrCode& code, const QString& path) {
    auto it = texts_.find(path);
    if (it != texts_.end() && it->code == code)
        return *it;
    CodeText t{code, "null", "null", "\"protocol\":null,\"scancode\":null"};
    if (code.decoded()) {
        const QString spec = CodeSpec(code);
        const qsizetype colon = spec.indexOf(u':');
        t.code_ = stringJson(CodeDisplay(code));
        t.irp = irpJson(code);
        t.tail = "\"protocol\":" + stringJson(QStringView(spec).left(colon)) +
                 ",\"scancode\":" + stringJson(QStringView(spec).mid(colon + 1));
    }
    return *texts_.insert(path, std::move(t));
}

QByteArray RemotesApi::keyJson(const QString& stem, int key, const QString& function) {
    bool learned = false;
    const CodeText* text = nullptr;
    if (!function.isEmpty()) {
        const QString path = SignalFilePath(stem, function);
        const IrCode code = codes_->codeOf(path, &learned);
        if (learned)
            text = &textOf(code, path);
    }
    QByteArray out = "{\"code\":";
    out += text ? text->code_ : "null";
    out += ",\"id\":" + QByteArray::number(key) + ",\"irp\":";
    out += text ? text->irp : "null";
    out += learned ? ",\"learned\":true,\"name\":" : ",\"learned\":false,\"name\":";
    appendString(out, function);
    out += ',';
    out += text ? text->tail : "\"protocol\":null,\"scancode\":null";
    out += '}';
    return out;
}

QByteArray RemotesApi::KeyJson(const QString& device, int key, const QString& function) {
    return keyJson(SignalPathStem(folder_, device), key, function);
}

// A remote with its keys, or what a list of names needs: how many are learned.
QByteArray RemotesApi::remoteJson(int id, bool withKeys) {
    const QString name = settings_.Read(Key::RemoteName(id));
    const Design* design = DesignByText(settings_.Read(Key::RemoteDesign(id)));
    if (name.isEmpty() || !design)
        return {};
    const std::vector<QString> buttons = ReadRemoteButtons(settings_, id);
    const QString stem = SignalPathStem(folder_, name);
    QByteArray out = "{\"buttonCount\":" + QByteArray::number(design->buttonCount) +
                     ",\"design\":" + QByteArray::number(design->id) +
                     ",\"id\":" + QByteArray::number(id);
    if (withKeys) {
        out += ",\"keys\":[";
        for (int k = 0; k < int(buttons.size()); ++k) {
            if (k)
                out += ',';
            out += keyJson(stem, k, buttons[size_t(k)]);
        }
        out += ']';
    } else {
        int learned = 0;
        for (const QString& function : buttons)
            learned += !function.isEmpty() && QFileInfo::exists(SignalFilePath(stem, function));
        out += ",\"learned\":" + QByteArray::number(learned);
    }
    out += ",\"name\":";
    appendString(out, name);
    out += '}';
    return out;
}

bool RemotesApi::listsHold() {
    return !stamp_.isEmpty() && RegistryStamp(settings_, folder_) == stamp_;
}

void RemotesApi::changed(int remote, bool held) {
    if (!held) {
        stamp_.clear();
        return;
    }
    stamp_ = RegistryStamp(settings_, folder_);
    full_.stale.insert(remote);
    light_.stale.insert(remote);
}

const QByteArray& RemotesApi::listing(Listing& l) {
    const QByteArray stamp = RegistryStamp(settings_, folder_);
    if (stamp != stamp_) {
        stamp_ = stamp;
        full_.made = light_.made = false;
    }
    if (!l.made) {
        l.parts.assign(MaxListedRemoteId + 1, {});
        for (int id = 1; id <= MaxListedRemoteId; ++id)
            l.parts[size_t(id)] = remoteJson(id, !l.light);
        l.made = true;
        l.stale.clear();
        l.body.clear();
    }
    for (const int id : l.stale)
        if (id >= 1 && id <= MaxListedRemoteId)
            l.parts[size_t(id)] = remoteJson(id, !l.light);
    if (!l.stale.empty())
        l.body.clear();
    l.stale.clear();
    if (l.body.isEmpty()) {
        l.body = "{\"remotes\":[";
        for (const QByteArray& part : l.parts)
            if (!part.isEmpty()) {
                if (l.body.size() > 12)
                    l.body += ',';
                l.body += part;
            }
        l.body += "]}";
    }
    return l.body;
}

void RemotesApi::Prepare() {
    QElapsedTimer clock;
    clock.start();
    listing(full_);
    listing(light_);
    qCDebug(lcRemotes, "remotes listed in %.1f ms", double(clock.nsecsElapsed()) / 1e6);
}

void RemotesApi::List(const FrontReply& r, const QString& query) {
    raw(r, 200, listing(query.split(u'&').contains(u"keys=none"_s) ? light_ : full_));
}

void RemotesApi::Get(const Api::Call& c, const FrontReply& r) {
    const QByteArray o = remoteJson(c.remote, true);
    if (o.isEmpty())
        return notFound(r, NoRemoteText);
    raw(r, 200, o);
}

void RemotesApi::GetKey(const Api::Call& c, const FrontReply& r) {
    const QString name = settings_.Read(Key::RemoteName(c.remote));
    const std::vector<QString> buttons = ReadRemoteButtons(settings_, c.remote);
    if (name.isEmpty() || buttons.empty())
        return notFound(r, NoRemoteText);
    if (c.key >= int(buttons.size()))
        return notFound(r, NoKeyText);
    raw(r, 200, KeyJson(name, c.key, buttons[size_t(c.key)]));
}

void RemotesApi::Create(const Api::Call& c, const FrontReply& r) {
    bool refused = false;
    const QString name =
        nameFrom(c.body, u"name"_s, true, &refused, [&](const QString& m) { bad(r, m); });
    if (refused)
        return;
    const Design* design = DesignByText(QString::number(c.body.value(u"design"_s).toInt(0)));
    if (!design)
        return bad(r, u"design は 1～6 にしてください。"_s);
    const QString device = ShiftJis::RoundTrip(name);
    const RemoteSlot slot = FindRemoteSlot(settings_, device);
    if (slot.existingSlot)
        return error(r, 409, "conflict", u"「%1」という名前のリモコンはもうあります。"_s.arg(name));
    if (slot.freeSlot == 0 || slot.freeSlot > MaxListedRemoteId)
        return error(r, 409, "conflict",
                     u"リモコンはこれ以上登録できません（%1 台まで）。"_s.arg(MaxListedRemoteId));
    // The wizard's store with no keys: the old files of that name go first.
    const bool held = listsHold();
    const bool stored =
        StoreRemote(folder_, settings_, {slot.freeSlot, device, design->id, true, {}, {}});
    changed(slot.freeSlot, held);
    const QByteArray o = remoteJson(slot.freeSlot, true);
    if (!stored || o.isEmpty())
        return error(r, 500, "not_written", u"設定ファイルに書き込めませんでした。"_s);
    raw(r, 201, o);
}

void RemotesApi::Rename(const Api::Call& c, const FrontReply& r) {
    const QString old = settings_.Read(Key::RemoteName(c.remote));
    if (old.isEmpty())
        return notFound(r, NoRemoteText);
    bool refused = false;
    const QString name =
        nameFrom(c.body, u"name"_s, true, &refused, [&](const QString& m) { bad(r, m); });
    if (refused)
        return;
    const QString device = ShiftJis::RoundTrip(name);
    if (device != old) {
        const RemoteSlot slot = FindRemoteSlot(settings_, device);
        if (slot.existingSlot && slot.existingSlot != c.remote)
            return error(r, 409, "conflict",
                         u"「%1」という名前のリモコンはもうあります。"_s.arg(name));
        // The files move first and come back if the registry cannot name the new.
        const QString from = SignalPathStem(folder_, old), to = SignalPathStem(folder_, device);
        std::vector<std::pair<QString, QString>> moves;
        for (const QString& function : ReadRemoteButtons(settings_, c.remote))
            if (!function.isEmpty())
                moves.emplace_back(SignalFilePath(from, function), SignalFilePath(to, function));
        const bool held = listsHold();
        // A failure leaves the stamp moved: the lists are made anew.
        if (!moveFiles(moves))
            return error(r, 500, "not_written", u"信号ファイルを書き込めませんでした。"_s);
        settings_.Write(Key::RemoteName(c.remote), device);
        if (settings_.Read(Key::RemoteName(c.remote)) != device) {
            moveBack(moves);
            return error(r, 500, "not_written", u"設定ファイルに書き込めませんでした。"_s);
        }
        changed(c.remote, held);
    }
    raw(r, 200, remoteJson(c.remote, true));
}

void RemotesApi::Delete(const Api::Call& c, const FrontReply& r) {
    const QString name = settings_.Read(Key::RemoteName(c.remote));
    if (name.isEmpty())
        return notFound(r, NoRemoteText);
    const bool held = listsHold();
    DeleteRemote(folder_, settings_, c.remote, name);
    changed(c.remote, held);
    none(r);
}

bool RemotesApi::FindKey(const Api::Call& c, bool nameRequired, KeyTarget* t, const FrontReply& r) {
    t->device = settings_.Read(Key::RemoteName(c.remote));
    t->buttons = ReadRemoteButtons(settings_, c.remote);
    if (t->device.isEmpty() || t->buttons.empty()) {
        notFound(r, NoRemoteText);
        return false;
    }
    if (c.key >= int(t->buttons.size())) {
        notFound(r, NoKeyText);
        return false;
    }
    bool refused = false;
    QString name =
        nameFrom(c.body, u"name"_s, nameRequired, &refused, [&](const QString& m) { bad(r, m); });
    if (refused)
        return false;
    if (name.isEmpty())
        name = t->buttons[size_t(c.key)];
    if (name.isEmpty()) {
        bad(r, u"name にキーの名前を入れてください。"_s);
        return false;
    }
    name = ShiftJis::RoundTrip(name);
    for (int k = 0; k < int(t->buttons.size()); ++k)
        if (k != c.key && t->buttons[size_t(k)] == name) {
            error(r, 409, "conflict",
                  u"「%1」はこのリモコンのボタン %2 がもう使っています。"_s.arg(name).arg(k + 1));
            return false;
        }
    t->name = name;
    return true;
}

void RemotesApi::RenameKey(const Api::Call& c, const FrontReply& r) {
    KeyTarget t;
    if (!FindKey(c, true, &t, r))
        return;
    const QString old = t.buttons[size_t(c.key)];
    if (old != t.name) {
        const QString stem = SignalPathStem(folder_, t.device);
        const std::vector<std::pair<QString, QString>> moves{
            {old.isEmpty() ? QString() : SignalFilePath(stem, old), SignalFilePath(stem, t.name)}};
        const bool held = listsHold();
        if (!old.isEmpty() && !moveFiles(moves))
            return error(r, 500, "not_written", u"信号ファイルを書き込めませんでした。"_s);
        settings_.Write(Key::RemoteButton(c.remote, c.key), t.name);
        if (GetButtonFunc(settings_, QString::number(c.remote), QString::number(c.key)) != t.name) {
            if (!old.isEmpty())
                moveBack(moves);
            return error(r, 500, "not_written", u"設定ファイルに書き込めませんでした。"_s);
        }
        changed(c.remote, held);
    }
    raw(r, 200, KeyJson(t.device, c.key, t.name));
}

void RemotesApi::DeleteKey(const Api::Call& c, const FrontReply& r) {
    const QString device = settings_.Read(Key::RemoteName(c.remote));
    const std::vector<QString> buttons = ReadRemoteButtons(settings_, c.remote);
    if (device.isEmpty() || buttons.empty())
        return notFound(r, NoRemoteText);
    if (c.key >= int(buttons.size()))
        return notFound(r, NoKeyText);
    const QString function = buttons[size_t(c.key)];
    const bool held = listsHold();
    const bool stored =
        function.isEmpty() ||
        StoreRemote(folder_, settings_, {c.remote, device, 0, false, {{function, c.key}}, {}});
    changed(c.remote, held);
    if (!stored)
        return error(r, 500, "not_written", u"設定ファイルに書き込めませんでした。"_s);
    none(r);
}

bool RemotesApi::StoreKey(int remote, int key, const QString& function, const SignalImage& image,
                          QString* why) {
    RemoteChange change{remote, settings_.Read(Key::RemoteName(remote)), 0, false, {}, {}};
    // The key's old name loses its file when the key gets another.
    const QString old = GetButtonFunc(settings_, QString::number(remote), QString::number(key));
    if (!old.isEmpty() && old != function)
        change.deleted.push_back({old, key});
    change.keys.push_back(
        {key, function,
         QByteArray(reinterpret_cast<const char*>(image.data()), qsizetype(image.size()))});
    QString error;
    const bool held = listsHold();
    const bool stored = StoreRemote(folder_, settings_, change, &error);
    changed(remote, held);
    if (!stored)
        *why = u"学習した信号を保存できませんでした。"_s + u'\n' + error;
    return stored;
}
