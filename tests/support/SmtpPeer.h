#pragma once

#include "core/Wait.h"
#include "support/TempFolder.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <gtest/gtest.h>

#include <vector>

// aiosmtpd writing each message as Python's mail parser reads it, a JSON line each; "auth" takes
// only kestrava / pa:ss, "tls" offers STARTTLS.
inline const char* SmtpScript = R"(
import base64, email, email.header, email.utils, json, sys, time
from aiosmtpd.controller import Controller
from aiosmtpd.smtp import AuthResult, LoginPassword
port, out, mode = int(sys.argv[1]), sys.argv[2], sys.argv[3]
logins = []
def authenticator(server, session, envelope, mechanism, data):
    ok = isinstance(data, LoginPassword) and data.login == b"kestrava" and data.password == b"pa:ss"
    if ok:
        logins.append(data.login.decode())
    return AuthResult(success=ok, handled=False)
class Handler:
    async def handle_DATA(self, server, session, envelope):
        msg = email.message_from_bytes(envelope.content)
        record = {
            "from": envelope.mail_from, "to": envelope.rcpt_tos,
            "login": logins[-1] if logins else "",
            "subject": str(email.header.make_header(email.header.decode_header(msg["Subject"]))),
            "charset": msg.get_content_charset(),
            "body": base64.b64encode(msg.get_payload(decode=True)).decode(),
            "date": email.utils.parsedate_to_datetime(msg["Date"]).strftime("%Y-%m-%d %H:%M %z"),
            "messageId": msg["Message-ID"] or "",
        }
        with open(out, "a") as f:
            f.write(json.dumps(record) + "\n")
        return "250 OK"
tls = None
if mode == "tls":
    import ssl
    tls = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
    tls.load_cert_chain(sys.argv[4], sys.argv[5])
c = Controller(Handler(), hostname="127.0.0.1", port=port, authenticator=authenticator,
               auth_required=(mode == "auth"), auth_require_tls=False, tls_context=tls)
c.start()
print("ready", flush=True)
sys.stdin.read()
)";

inline quint16 freePort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    return probe.serverPort();
}

class SmtpPeer {
public:
    SmtpPeer(const TempFolder& temp, const QString& mode, const QStringList& tlsFiles = {})
        : script(temp.dir.filePath(QStringLiteral("smtp.py"))),
          out(temp.dir.filePath(QStringLiteral("received.jsonl"))) {
        QFile f(script);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(SmtpScript);
        f.close();
        port = freePort();
        process.start(QStringLiteral("/usr/bin/python3"),
                      QStringList{script, QString::number(port), out, mode} + tlsFiles);
        ready = process.waitForStarted() &&
                WaitForSignal(&process, &QProcess::readyReadStandardOutput, 10000);
    }
    ~SmtpPeer() {
        process.closeWriteChannel();
        if (!process.waitForFinished(3000))
            process.kill();
    }
    std::vector<QJsonObject> received() const {
        std::vector<QJsonObject> all;
        QFile f(out);
        if (f.open(QIODevice::ReadOnly))
            for (const QByteArray& line : f.readAll().split('\n'))
                if (!line.isEmpty())
                    all.push_back(QJsonDocument::fromJson(line).object());
        return all;
    }

    QString script, out;
    QProcess process;
    quint16 port = 0;
    bool ready = false;
};
