#include "reachability/AddressMail.h"

#include "core/Clock.h"
#include "core/Password.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"

#include <QElapsedTimer>
#include <QLocale>
#include <QLoggingCategory>
#include <QMetaObject>
#include <QSysInfo>
#include <QUuid>

#include <curl/curl.h>

#include <atomic>
#include <mutex>
#include <set>

namespace {

Q_LOGGING_CATEGORY(lcMail, "kestrava.mail")

// "host" or "host:port"; the URL for libcurl, or "" when the text is no server.
QByteArray serverUrl(const QByteArray& scheme, const QString& server, int defaultPort) {
    QString host = server.trimmed();
    int port = defaultPort;
    qsizetype colon = host.lastIndexOf(u':');
    if (colon >= 0 && host.indexOf(u':') == colon) {
        bool ok = false;
        port = host.mid(colon + 1).toInt(&ok);
        if (!ok || port < 1 || port > 65535)
            return {};
        host.truncate(colon);
    }
    if (host.isEmpty() || host.contains(u'/') || host.contains(u'@'))
        return {};
    return scheme + "://" + host.toUtf8() + ':' + QByteArray::number(port) + '/';
}

// The bare address for the envelope: what stands between < and >, if anything does.
QByteArray envelopeAddress(const QString& text) {
    qsizetype open = text.indexOf(u'<');
    qsizetype close = text.lastIndexOf(u'>');
    QString address = open >= 0 && close > open ? text.mid(open + 1, close - open - 1) : text;
    return '<' + address.trimmed().toUtf8() + '>';
}

struct Upload {
    QByteArray bytes;
    qsizetype at = 0;
};

size_t readUpload(char* buffer, size_t size, size_t count, void* user) {
    auto* upload = static_cast<Upload*>(user);
    size_t n = std::min(size * count, size_t(upload->bytes.size() - upload->at));
    memcpy(buffer, upload->bytes.constData() + upload->at, n);
    upload->at += qsizetype(n);
    return n;
}

size_t discard(char*, size_t size, size_t count, void*) {
    return size * count;
}

// --verbose shows the exchange; whatever is sent while an AUTH or PASS is in
// progress is masked, since it carries the password.
struct Trace {
    bool secret = false;
};

int traceLine(CURL*, curl_infotype type, char* data, size_t size, void* user) {
    auto* trace = static_cast<Trace*>(user);
    QByteArray line = QByteArray(data, qsizetype(size)).trimmed();
    if (type == CURLINFO_HEADER_OUT) {
        bool auth = line.startsWith("AUTH ") || line.startsWith("PASS ");
        if (auth) {
            qsizetype blank = line.indexOf(' ', 5);
            if (line.startsWith("PASS "))
                line = "PASS ****";
            else if (blank > 0)
                line = line.left(blank) + " ****";
        } else if (trace->secret) {
            line = "****";
        }
        trace->secret = auth || trace->secret;
        qCDebug(lcMail).noquote() << QString::fromUtf8("> " + line);
    } else if (type == CURLINFO_HEADER_IN) {
        trace->secret =
            trace->secret && (line.startsWith("334") || line == "+" || line.startsWith("+ "));
        qCDebug(lcMail).noquote() << QString::fromUtf8("< " + line);
    }
    return 0;
}

CURL* openHandle(const QByteArray& url, qint64 timeoutMs, char* errors, Trace* trace) {
    CURL* curl = curl_easy_init();
    if (!curl)
        return nullptr;
    curl_easy_setopt(curl, CURLOPT_URL, url.constData());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_USE_SSL, long(CURLUSESSL_TRY));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, long(std::max<qint64>(timeoutMs, 1)));
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errors);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, discard);
    if (lcMail().isDebugEnabled()) {
        curl_easy_setopt(curl, CURLOPT_VERBOSE, 1L);
        curl_easy_setopt(curl, CURLOPT_DEBUGFUNCTION, traceLine);
        curl_easy_setopt(curl, CURLOPT_DEBUGDATA, trace);
    }
    return curl;
}

QString failureText(CURLcode code, const char* errors) {
    return QString::fromUtf8(*errors ? errors : curl_easy_strerror(code));
}

} // namespace

const QString AddressMail::Subject = QStringLiteral("Kestrava - IPアドレス通知");
const QString AddressMail::ErrorText = QStringLiteral("IPアドレス通知メール送信エラー");

// Lets the owner end the workers' conversations at once: each waits in a
// multi handle that the owner can wake.
struct AddressMail::Cancel {
    std::mutex mutex;
    std::atomic<bool> cancelled = false;
    std::set<CURLM*> waiting;

    void cancel() {
        std::lock_guard lock(mutex);
        cancelled = true;
        for (CURLM* multi : waiting)
            curl_multi_wakeup(multi);
    }

    // Ends the transfer from inside libcurl, which then drops the connection
    // instead of saying goodbye to a server that may never answer.
    static int progress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
        return static_cast<Cancel*>(self)->cancelled ? 1 : 0;
    }

    CURLcode perform(CURL* easy) {
        curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, progress);
        curl_easy_setopt(easy, CURLOPT_XFERINFODATA, this);
        CURLM* multi = curl_multi_init();
        if (!multi)
            return CURLE_OUT_OF_MEMORY;
        curl_multi_add_handle(multi, easy);
        {
            std::lock_guard lock(mutex);
            waiting.insert(multi);
        }
        CURLcode result = CURLE_FAILED_INIT;
        for (int running = 1;;) {
            if (curl_multi_perform(multi, &running) != CURLM_OK) {
                result = CURLE_FAILED_INIT;
                break;
            }
            if (!running) {
                int left = 0;
                CURLMsg* message = curl_multi_info_read(multi, &left);
                result = message && message->msg == CURLMSG_DONE ? message->data.result
                                                                 : CURLE_FAILED_INIT;
                break;
            }
            curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
        }
        {
            std::lock_guard lock(mutex);
            waiting.erase(multi);
        }
        curl_multi_remove_handle(multi, easy);
        curl_multi_cleanup(multi);
        return result;
    }
};

// What the worker needs, read from the settings on the event loop beforehand.
struct AddressMail::Job {
    QString smtpServer, to, sender; // sender: address, or address TAB user ":" password
    QByteArray message;
    bool popFirst = false;
    QString popServer, user, password;
    qint64 timeoutMs = DefaultTimeoutMs;

    // The POP3 STAT that opens the server's window for this address. Its
    // result does not matter: a refused login shows up in the SMTP step.
    void popStat(Cancel& cancel, qint64 deadlineMs, QElapsedTimer& clock) {
        QByteArray url = serverUrl("pop3", popServer, 110);
        if (url.isEmpty())
            return;
        char errors[CURL_ERROR_SIZE] = {};
        Trace trace;
        CURL* curl = openHandle(url, deadlineMs - clock.elapsed(), errors, &trace);
        if (!curl)
            return;
        QByteArray name = user.toUtf8(), secret = password.toUtf8();
        curl_easy_setopt(curl, CURLOPT_USERNAME, name.constData());
        curl_easy_setopt(curl, CURLOPT_PASSWORD, secret.constData());
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, "STAT");
        curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
        CURLcode code = cancel.perform(curl);
        if (code != CURLE_OK)
            qCDebug(lcMail).noquote() << "POP3 STAT:" << failureText(code, errors);
        curl_easy_cleanup(curl);
    }

    // Empty on success, otherwise the reason.
    QString run(Cancel& cancel) {
        QElapsedTimer clock;
        clock.start();
        if (popFirst)
            popStat(cancel, timeoutMs, clock);
        QByteArray url = serverUrl("smtp", smtpServer, 25);
        if (url.isEmpty())
            return QStringLiteral("SMTP server not usable: ") + smtpServer;
        if (clock.elapsed() >= timeoutMs)
            return QStringLiteral("time-out");

        qsizetype tab = sender.indexOf(u'\t');
        QString address = tab >= 0 ? sender.left(tab) : sender;
        QByteArray name, secret;
        if (tab >= 0) {
            QString credentials = sender.mid(tab + 1);
            qsizetype colon = credentials.indexOf(u':');
            name = credentials.left(colon).toUtf8();
            secret = colon >= 0 ? credentials.mid(colon + 1).toUtf8() : QByteArray();
        }

        char errors[CURL_ERROR_SIZE] = {};
        Trace trace;
        CURL* curl = openHandle(url, timeoutMs - clock.elapsed(), errors, &trace);
        if (!curl)
            return QStringLiteral("libcurl not usable");
        QByteArray from = envelopeAddress(address), rcpt = envelopeAddress(to);
        curl_slist* recipients = curl_slist_append(nullptr, rcpt.constData());
        Upload upload{message};
        curl_easy_setopt(curl, CURLOPT_MAIL_FROM, from.constData());
        curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, recipients);
        curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(curl, CURLOPT_READFUNCTION, readUpload);
        curl_easy_setopt(curl, CURLOPT_READDATA, &upload);
        curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, curl_off_t(message.size()));
        if (tab >= 0) {
            curl_easy_setopt(curl, CURLOPT_USERNAME, name.constData());
            curl_easy_setopt(curl, CURLOPT_PASSWORD, secret.constData());
        }
        CURLcode code = cancel.perform(curl);
        QString error = code == CURLE_OK ? QString() : failureText(code, errors);
        curl_slist_free_all(recipients);
        curl_easy_cleanup(curl);
        return error;
    }
};

AddressMail::AddressMail(SettingsStore& settings, QObject* parent)
    : QObject(parent), settings_(settings), cancel_(std::make_shared<Cancel>()) {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

AddressMail::~AddressMail() {
    // A conversation still running is woken and cut off at once.
    cancel_->cancel();
    for (auto& [id, running] : running_)
        running.thread.join();
}

QString AddressMail::Body(const QString& address, const QDateTime& now) {
    return QStringLiteral("\r\n通知日時:") + now.toString(QStringLiteral("yyyy/MM/dd hh:mm")) +
           QStringLiteral("\r\n\r\nIPアドレスが変化しました。\r\n\r\n現在のIPアドレス： ") +
           address;
}

QByteArray AddressMail::Message(const QString& from, const QString& to, const QString& subject,
                                const QString& body, const QDateTime& now) {
    int offset = now.offsetFromUtc() / 60;
    QByteArray zone = QByteArray(offset < 0 ? "-" : "+") +
                      QByteArray::number(std::abs(offset) / 60 * 100 + std::abs(offset) % 60)
                          .rightJustified(4, '0');
    QByteArray date =
        QLocale::c().toString(now, QStringLiteral("ddd, dd MMM yyyy hh:mm:ss")).toUtf8() + ' ' +
        zone;
    QByteArray domain = envelopeAddress(from).chopped(1).mid(1);
    domain = domain.contains('@') ? domain.mid(domain.lastIndexOf('@') + 1)
                                  : QSysInfo::machineHostName().toUtf8();
    QByteArray id = QUuid::createUuid().toByteArray(QUuid::Id128) + '@' + domain;
    QByteArray text = body.toUtf8().toBase64();
    QByteArray wrapped;
    for (qsizetype at = 0; at < text.size(); at += 76)
        wrapped += text.mid(at, 76) + "\r\n";
    return "Date: " + date + "\r\nFrom: " + from.toUtf8() + "\r\nTo: " + to.toUtf8() +
           "\r\nSubject: =?UTF-8?B?" + subject.toUtf8().toBase64() + "?=\r\nMessage-ID: <" + id +
           ">\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=UTF-8"
           "\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
           wrapped;
}

void AddressMail::Send(const QString& address, std::function<void(bool sent)> done) {
    SystemClock system;
    QDateTime now = clock_ ? clock_->now() : system.now();
    auto job = std::make_shared<Job>();
    job->smtpServer = settings_.Read(Key::SMTPServer);
    job->to = settings_.Read(Key::NotifyTo);
    QString from = settings_.Read(Key::MailFrom);
    job->sender = from;
    if (settings_.IsOn(Key::MailAuth)) {
        QString method = settings_.Read(Key::AuthMethod);
        if (method == u"SMTPAuth") {
            job->sender = from + u'\t' + settings_.Read(Key::MailUser) + u':' +
                          ScramblePassword(u"RESET", settings_.Read(Key::MailPass));
        } else if (method == u"POPBeforeSMTP") {
            job->popFirst = true;
            job->popServer = settings_.Read(Key::POPServer);
            job->user = settings_.Read(Key::MailUser);
            job->password = ScramblePassword(u"RESET", settings_.Read(Key::MailPass));
        }
    }
    job->message = Message(from, job->to, Subject, Body(address, now), now);
    job->timeoutMs = timeoutMs_;

    quint64 id = nextId_++;
    Running& running = running_[id];
    running.done = std::move(done);
    running.thread = std::thread([this, id, job, cancel = cancel_] {
        QString error = job->run(*cancel);
        // Posted to the event loop; dropped if this object is gone by then.
        QMetaObject::invokeMethod(
            this, [this, id, error] { finish(id, error); }, Qt::QueuedConnection);
    });
}

void AddressMail::finish(quint64 id, const QString& error) {
    auto it = running_.find(id);
    if (it == running_.end())
        return;
    it->second.thread.join();
    std::function<void(bool)> done = std::move(it->second.done);
    running_.erase(it);
    if (!error.isEmpty()) {
        // A notice is logged where it is shown; without one, the log is all.
        QString text = ErrorText + error;
        if (prompt_)
            prompt_->Notice(QStringLiteral("mail"), text);
        else
            qCWarning(lcMail).noquote() << text;
    }
    if (done)
        done(error.isEmpty());
}
