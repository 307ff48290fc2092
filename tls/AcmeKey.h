#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>

#include <memory>

typedef struct evp_pkey_st EVP_PKEY;

namespace Acme {

// base64url without padding, as JWS and ACME write it.
QByteArray Base64Url(QByteArrayView bytes);

// A private key held by libcrypto: the ACME account key and the certificate
// key are EC P-256; a key read from the user's files may also be RSA.
class PrivateKey {
public:
    static PrivateKey GenerateP256();
    // Any PEM private key (PKCS#8, "EC PRIVATE KEY", "RSA PRIVATE KEY").
    static PrivateKey FromPem(QByteArrayView pem);
    bool isNull() const { return !key_; }
    bool isEc() const;
    QByteArray pkcs8Pem() const;

    // The public key as a JWK with its members in the order RFC 7638 hashes
    // them, and that hash: the account key's identity in key authorizations.
    QByteArray jwk() const;
    QByteArray thumbprint() const;
    // ES256 over data: r and s, 32 bytes each. Empty on failure.
    QByteArray signEs256(QByteArrayView data) const;
    // A DER certificate request for the names, signed with this key.
    QByteArray csr(const QStringList& names) const;

    // Whether the first certificate of a PEM chain carries this key's public half.
    bool matches(QByteArrayView certificatePem) const;

private:
    std::shared_ptr<EVP_PKEY> key_;
};

} // namespace Acme
