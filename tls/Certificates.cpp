#include "tls/Certificates.h"

#include "core/AtomicFile.h"
#include "core/BoundedRead.h"
#include "core/Clock.h"
#include "core/ProgramFolder.h"
#include "core/Settings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QSslKey>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcTls, "kestrava.tls")

const QString Certificates::ChallengePath = u"/.well-known/acme-challenge/"_s;
const QString Certificates::AccountKeyFile = u"acme/account-key.pem"_s;
const QString Certificates::CertificateFile = u"acme/certificate.pem"_s;
const QString Certificates::DefaultDirectory = u"https://acme-v02.api.letsencrypt.org/directory"_s;

namespace {

constexpr qint64 MaxPemBytes = 1024 * 1024;
constexpr int DayMs = 24 * 3600 * 1000;

QByteArray readPem(const QString& path, QString* why) {
    const BoundedRead read = ReadBounded(path, MaxPemBytes);
    if (!read.ok())
        *why =
            path + u": "_s + (read.result == BoundedRead::TooLarge ? u"too large"_s : read.error);
    return read.ok() ? read.bytes : QByteArray();
}

QStringList namesOf(const QSslCertificate& c) {
    QStringList names = c.subjectAlternativeNames().values(QSsl::DnsEntry);
    if (names.isEmpty())
        names = c.subjectInfo(QSslCertificate::CommonName);
    names.sort();
    return names;
}

} // namespace

Certificates::Certificates(const ProgramFolder& folder, SettingsStore& settings, const Clock& clock,
                           QObject* parent)
    : QObject(parent), folder_(folder), settings_(settings), clock_(clock) {
    // certbot renews by pointing the links at new files: the folder changes,
    // the file may not, and a replaced file drops out of the watch.
    debounce_.setSingleShot(true);
    debounce_.setInterval(500);
    connect(&watcher_, &QFileSystemWatcher::fileChanged, &debounce_, qOverload<>(&QTimer::start));
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, &debounce_,
            qOverload<>(&QTimer::start));
    connect(&debounce_, &QTimer::timeout, this, &Certificates::reloadFiles);
    renew_.setSingleShot(true);
    connect(&renew_, &QTimer::timeout, this, &Certificates::CheckRenewal);
    connect(&acme_, &AcmeClient::issued, this, &Certificates::issued);
    connect(&acme_, &AcmeClient::failed, this, &Certificates::failed);
    connect(&acme_, &AcmeClient::challengeOpened, this,
            [this](const QString& token, const QByteArray& answer) {
                challenges_.insert(token, answer);
                if (challenges_.size() == 1)
                    emit challengeOpenChanged(true);
            });
    connect(&acme_, &AcmeClient::challengeClosed, this, [this](const QString& token) {
        if (challenges_.remove(token) && challenges_.isEmpty())
            emit challengeOpenChanged(false);
    });
}

void Certificates::setTimings(int debounceMs, int firstRetryMs, int maxRetryMs) {
    debounce_.setInterval(debounceMs);
    firstRetryMs_ = retryMs_ = firstRetryMs;
    maxRetryMs_ = maxRetryMs;
}

void Certificates::Start() {
    certPath_ = settings_.Read(Key::CertFile).trimmed();
    keyPath_ = settings_.Read(Key::KeyFile).trimmed();
    if (!certPath_.isEmpty() || !keyPath_.isEmpty()) {
        mode_ = Mode::Files;
        if (keyPath_.isEmpty())
            keyPath_ = certPath_; // one file holding both
        certPath_ = QFileInfo(certPath_.isEmpty() ? keyPath_ : certPath_).absoluteFilePath();
        keyPath_ = QFileInfo(keyPath_).absoluteFilePath();
        reloadFiles();
        return;
    }
    if (Val(settings_.Read(Key::HttpsPort)) > 0 && !wantedNames().isEmpty()) {
        mode_ = Mode::Acme;
        startAcme();
    }
}

QByteArray Certificates::ChallengeAnswer(QStringView token) const {
    return challenges_.value(token.toString());
}

// Takes a chain and its key into service when they fit together.
bool Certificates::use(const QByteArray& chainPem, const QByteArray& keyPem, const QString& source,
                       QString* why) {
    const QList<QSslCertificate> chain = QSslCertificate::fromData(chainPem, QSsl::Pem);
    const Acme::PrivateKey key = Acme::PrivateKey::FromPem(keyPem);
    if (chain.isEmpty() || chain.first().isNull()) {
        *why = u"no certificate"_s;
        return false;
    }
    if (key.isNull()) {
        *why = u"no private key"_s;
        return false;
    }
    if (!key.matches(chainPem)) {
        *why = u"the key does not belong to the certificate"_s;
        return false;
    }
    // Qt reads every kind of key from PKCS#8; the user's may be any PEM form.
    const QSslKey qkey(key.pkcs8Pem(), key.isEc() ? QSsl::Ec : QSsl::Rsa, QSsl::Pem);
    if (qkey.isNull()) {
        *why = u"the key's kind is not supported"_s;
        return false;
    }
    if (loaded_ == chainPem + keyPem) {
        info_.problem.clear();
        return true;
    }
    QSslConfiguration config = QSslConfiguration::defaultConfiguration();
    config.setProtocol(QSsl::TlsV1_2OrLater);
    config.setPeerVerifyMode(QSslSocket::VerifyNone);
    config.setLocalCertificateChain(chain);
    config.setPrivateKey(qkey);
    config_ = config;
    loaded_ = chainPem + keyPem;
    notBefore_ = chain.first().effectiveDate();
    info_ = {namesOf(chain.first()), chain.first().expiryDate(), source, {}};
    if (info_.expires < clock_.now())
        info_.problem = u"the certificate has expired"_s;
    qCInfo(lcTls).noquote() << "certificate for" << info_.names.join(u", "_s) << "until"
                            << info_.expires.toUTC().toString(Qt::ISODate) << "from" << source;
    emit Changed();
    return true;
}

void Certificates::watchFiles() {
    // A watch follows a link to the file it named then: watch the new one.
    if (!watcher_.files().isEmpty())
        watcher_.removePaths(watcher_.files());
    const QStringList paths{certPath_, keyPath_, QFileInfo(certPath_).absolutePath(),
                            QFileInfo(keyPath_).absolutePath()};
    for (const QString& p : paths)
        if (!watcher_.files().contains(p) && !watcher_.directories().contains(p) &&
            QFileInfo::exists(p))
            watcher_.addPath(p);
}

void Certificates::reloadFiles() {
    watchFiles();
    QString why;
    const QByteArray chain = readPem(certPath_, &why);
    const QByteArray key = why.isEmpty() ? readPem(keyPath_, &why) : QByteArray();
    if (why.isEmpty() && use(chain, key, certPath_, &why))
        return;
    info_.problem = why;
    if (info_.source.isEmpty())
        info_.source = certPath_;
    qCWarning(lcTls).noquote() << u"cannot use the certificate %1 with %2 (%3)%4"_s.arg(
        certPath_, keyPath_, why, config_.isNull() ? QString() : u"; the old one keeps serving"_s);
}

QStringList Certificates::wantedNames() {
    QStringList names;
    const QStringList given =
        QStringList{settings_.Read(Key::DnsHost)} + settings_.Read(Key::WebHosts).split(u',');
    for (QString name : given) {
        name = name.trimmed().toLower();
        // A CA can only check a name of the public DNS.
        if (name.isEmpty() || !name.contains(u'.') || name.endsWith(u".local") ||
            !QHostAddress(name).isNull() || names.contains(name))
            continue;
        names << name;
    }
    return names;
}

void Certificates::startAcme() {
    QString why;
    const QByteArray stored = QFile::exists(folder_.path(CertificateFile))
                                  ? readPem(folder_.path(CertificateFile), &why)
                                  : QByteArray();
    if (!stored.isEmpty() && !use(stored, stored, folder_.path(CertificateFile), &why))
        qCWarning(lcTls).noquote() << "the stored certificate cannot be used:" << why;
    CheckRenewal();
}

void Certificates::CheckRenewal() {
    if (mode_ != Mode::Acme || acme_.busy())
        return;
    renew_.stop();
    const QStringList names = wantedNames();
    const QDateTime now = clock_.now();
    QDateTime due;
    if (!config_.isNull() && QSet(names.begin(), names.end())
                                 .subtract(QSet(info_.names.begin(), info_.names.end()))
                                 .isEmpty())
        due = notBefore_.addSecs(notBefore_.secsTo(info_.expires) * 2 / 3);
    if (due.isValid() && due > now) {
        renew_.start(int(qMin<qint64>(now.msecsTo(due), DayMs)));
        return;
    }
    const QString directory = settings_.Read(Key::AcmeDirectory).trimmed();
    AcmeClient::Job job{QUrl(directory.isEmpty() ? DefaultDirectory : directory),
                        settings_.Read(Key::AcmeEmail).trimmed(),
                        {},
                        {},
                        names};
    const QString caFile = settings_.Read(Key::AcmeCAFile).trimmed();
    if (!caFile.isEmpty()) {
        job.extraCa = QSslCertificate::fromPath(caFile);
        if (job.extraCa.isEmpty())
            qCWarning(lcTls).noquote() << "no certificate in" << caFile;
    }
    const QString keyPath = folder_.path(AccountKeyFile);
    QString why;
    if (QFile::exists(keyPath))
        job.accountKey = Acme::PrivateKey::FromPem(readPem(keyPath, &why));
    if (job.accountKey.isNull()) {
        job.accountKey = Acme::PrivateKey::GenerateP256();
        QDir().mkpath(QFileInfo(keyPath).absolutePath());
        QFile::setPermissions(QFileInfo(keyPath).absolutePath(),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        if (!WriteFileAtomically(keyPath, job.accountKey.pkcs8Pem(), 0600, &why))
            return failed(u"cannot keep the account key: "_s + why);
    }
    qCInfo(lcTls).noquote() << "asking" << job.directory.toString() << "for a certificate for"
                            << names.join(u", "_s);
    acme_.Obtain(std::move(job));
}

void Certificates::issued(const QByteArray& chainPem, const QByteArray& keyPem) {
    const QByteArray both = keyPem + chainPem;
    const QString path = folder_.path(CertificateFile);
    QString why;
    const QString directory = settings_.Read(Key::AcmeDirectory).trimmed();
    if (!use(chainPem, keyPem, directory.isEmpty() ? DefaultDirectory : directory, &why))
        return failed(why);
    if (!WriteFileAtomically(path, both, 0600, &why))
        qCWarning(lcTls).noquote() << "cannot keep the new certificate:" << why;
    retryMs_ = firstRetryMs_;
    CheckRenewal();
}

void Certificates::failed(const QString& reason) {
    info_.problem = reason;
    qCWarning(lcTls).noquote() << u"no certificate from the CA: %1; next try in %2 s%3"_s.arg(
        reason, QString::number(retryMs_ / 1000),
        config_.isNull() ? QString() : u"; the old one keeps serving"_s);
    renew_.start(retryMs_);
    retryMs_ = qMin(retryMs_ * 2, maxRetryMs_);
}
