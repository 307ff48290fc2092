#pragma once

#include <QFile>
#include <QProcess>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QStringList>

// The files of a TLS listener: its CA, certificate and key.
struct TlsFiles {
    QString ca, cert, key;
    // As a server's configuration.
    QSslConfiguration server() const {
        QFile k(key);
        QSslConfiguration c;
        if (k.open(QIODevice::ReadOnly)) {
            c.setLocalCertificate(QSslCertificate::fromPath(cert).value(0));
            c.setPrivateKey(QSslKey(k.readAll(), QSsl::Ec));
        }
        return c;
    }
};

// openssl's certificate for subjectAltName ("IP:127.0.0.1"), self-signed or signed by ca.
inline TlsFiles MakeCertificate(const QString& dir, const QString& name,
                                const QString& subjectAltName, const TlsFiles& ca = {}) {
    TlsFiles made{ca.cert, dir + u'/' + name + QStringLiteral(".pem"),
                  dir + u'/' + name + QStringLiteral(".key")};
    QStringList a = QStringLiteral("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 "
                                   "-nodes -days 2 -subj")
                        .split(u' ');
    a << QStringLiteral("/CN=") + name << QStringLiteral("-keyout") << made.key
      << QStringLiteral("-out") << made.cert << QStringLiteral("-addext")
      << QStringLiteral("subjectAltName=") + subjectAltName;
    if (ca.cert.isEmpty())
        made.ca = made.cert;
    else
        a << QStringLiteral("-CA") << ca.cert << QStringLiteral("-CAkey") << ca.key;
    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    openssl.start(QStringLiteral("openssl"), a);
    if (!openssl.waitForFinished(20000) || openssl.exitCode() != 0)
        return {};
    return made;
}
