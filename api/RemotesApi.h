#pragma once

#include "api/ApiRequest.h"
#include "infrared/IrProtocol.h"
#include "infrared/SignalCodeCache.h"
#include "infrared/SignalStore.h"
#include "webserver/WebServer.h"

#include <QByteArray>
#include <QHash>
#include <QString>

#include <functional>
#include <set>
#include <vector>

class ProgramFolder;
class SettingsStore;

// /api/v1/remotes: the remotes and their keys, listed, made, renamed and
// removed. Lists are written as bytes: a phone asks for a hundred remotes
// of 66 keys each, and each key's code is shown.
class RemotesApi {
public:
    RemotesApi(const ProgramFolder& folder, SettingsStore& settings);

    void UseCodes(SignalCodeCache& codes) { codes_ = &codes; }

    // query "keys=none": the remotes without their keys.
    void List(const FrontReply& r, const QString& query);
    // Makes the list ahead of its first request.
    void Prepare();
    void Get(const Api::Call& c, const FrontReply& r);
    void Create(const Api::Call& c, const FrontReply& r);
    void Rename(const Api::Call& c, const FrontReply& r);
    void Delete(const Api::Call& c, const FrontReply& r);
    void GetKey(const Api::Call& c, const FrontReply& r);
    void RenameKey(const Api::Call& c, const FrontReply& r);
    void DeleteKey(const Api::Call& c, const FrontReply& r);

    // The remote and key a call names, and the key's name: the one asked
    // for, else its own. False with the refusal sent when either is missing
    // or the name cannot be the key's.
    struct KeyTarget {
        QString device;
        std::vector<QString> buttons;
        QString name;
    };
    bool FindKey(const Api::Call& c, bool nameRequired, KeyTarget* t, const FrontReply& r);

    // Stores one signal image on a key the way the editor does; false with
    // why when it could not be written.
    bool StoreKey(int remote, int key, const QString& name, const SignalImage& image, QString* why);
    // A key as answers show it.
    QByteArray KeyJson(const QString& device, int key, const QString& function);

private:
    // What a list shows of one code, made once per code.
    struct CodeText {
        IrCode code;
        QByteArray code_, irp, tail; // "code" value, "irp" value, "protocol":…,"scancode":…
    };
    const CodeText& textOf(const IrCode& code, const QString& path);
    QByteArray keyJson(const QString& stem, int key, const QString& function);
    QByteArray remoteJson(int id, bool withKeys);

    // The lists are kept per remote. A change made here remakes only the
    // remote it touched; any other change of the registry or of the signal
    // files (another front, another program) remakes them all.
    struct Listing {
        bool light = false;
        std::vector<QByteArray> parts; // by remote id
        std::set<int> stale;
        bool made = false; // parts hold for stamp_
        QByteArray body;
    };
    const QByteArray& listing(Listing& l);
    // Around a change of one remote: whether the lists held before it, and
    // after it, what they now miss.
    bool listsHold();
    void changed(int remote, bool held);

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    SignalCodeCache ownCodes_;
    SignalCodeCache* codes_ = &ownCodes_;
    QHash<QString, CodeText> texts_; // by signal file
    Listing full_;
    Listing light_{true, {}, {}, false, {}};
    QByteArray stamp_; // of the registry and the signal files the lists were made from
};
