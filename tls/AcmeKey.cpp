#include "tls/AcmeKey.h"

#include <openssl/bio.h>
#include <openssl/core_names.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <QCryptographicHash>

namespace Acme {

namespace {

template <typename T, void (*Free)(T*)>
using Owned = std::unique_ptr<T, decltype([](T* p) { Free(p); })>;

using Bio = Owned<BIO, BIO_free_all>;
using Bignum = Owned<BIGNUM, BN_free>;

Bio readBio(QByteArrayView bytes) {
    return Bio(BIO_new_mem_buf(bytes.data(), int(bytes.size())));
}

QByteArray bioBytes(BIO* bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return size > 0 ? QByteArray(data, size) : QByteArray();
}

QByteArray coordinate(EVP_PKEY* key, const char* name) {
    BIGNUM* raw = nullptr;
    if (!EVP_PKEY_get_bn_param(key, name, &raw))
        return {};
    const Bignum bn(raw);
    QByteArray out(32, '\0');
    if (BN_bn2binpad(bn.get(), reinterpret_cast<unsigned char*>(out.data()), 32) != 32)
        return {};
    return out;
}

} // namespace

QByteArray Base64Url(QByteArrayView bytes) {
    return bytes.toByteArray().toBase64(QByteArray::Base64UrlEncoding |
                                        QByteArray::OmitTrailingEquals);
}

PrivateKey PrivateKey::GenerateP256() {
    PrivateKey k;
    if (EVP_PKEY* raw = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"))
        k.key_.reset(raw, EVP_PKEY_free);
    return k;
}

PrivateKey PrivateKey::FromPem(QByteArrayView pem) {
    PrivateKey k;
    const Bio bio = readBio(pem);
    if (EVP_PKEY* raw = PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr))
        k.key_.reset(raw, EVP_PKEY_free);
    return k;
}

bool PrivateKey::isEc() const {
    return key_ && EVP_PKEY_get_base_id(key_.get()) == EVP_PKEY_EC;
}

QByteArray PrivateKey::pkcs8Pem() const {
    if (!key_)
        return {};
    const Bio bio(BIO_new(BIO_s_mem()));
    if (!PEM_write_bio_PKCS8PrivateKey(bio.get(), key_.get(), nullptr, nullptr, 0, nullptr,
                                       nullptr))
        return {};
    return bioBytes(bio.get());
}

QByteArray PrivateKey::jwk() const {
    if (!isEc())
        return {};
    const QByteArray x = coordinate(key_.get(), OSSL_PKEY_PARAM_EC_PUB_X);
    const QByteArray y = coordinate(key_.get(), OSSL_PKEY_PARAM_EC_PUB_Y);
    if (x.isEmpty() || y.isEmpty())
        return {};
    return R"({"crv":"P-256","kty":"EC","x":")" + Base64Url(x) + R"(","y":")" + Base64Url(y) +
           R"("})";
}

QByteArray PrivateKey::thumbprint() const {
    const QByteArray j = jwk();
    return j.isEmpty() ? QByteArray()
                       : Base64Url(QCryptographicHash::hash(j, QCryptographicHash::Sha256));
}

QByteArray PrivateKey::signEs256(QByteArrayView data) const {
    if (!isEc())
        return {};
    Owned<EVP_MD_CTX, EVP_MD_CTX_free> ctx(EVP_MD_CTX_new());
    size_t size = 0;
    if (!ctx || EVP_DigestSignInit(ctx.get(), nullptr, EVP_sha256(), nullptr, key_.get()) != 1 ||
        EVP_DigestSign(ctx.get(), nullptr, &size,
                       reinterpret_cast<const unsigned char*>(data.data()),
                       size_t(data.size())) != 1)
        return {};
    QByteArray der(qsizetype(size), '\0');
    if (EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(der.data()), &size,
                       reinterpret_cast<const unsigned char*>(data.data()),
                       size_t(data.size())) != 1)
        return {};
    // JWS wants the two numbers side by side, not libcrypto's DER sequence.
    const unsigned char* p = reinterpret_cast<const unsigned char*>(der.constData());
    Owned<ECDSA_SIG, ECDSA_SIG_free> sig(d2i_ECDSA_SIG(nullptr, &p, long(size)));
    if (!sig)
        return {};
    QByteArray out(64, '\0');
    auto* o = reinterpret_cast<unsigned char*>(out.data());
    if (BN_bn2binpad(ECDSA_SIG_get0_r(sig.get()), o, 32) != 32 ||
        BN_bn2binpad(ECDSA_SIG_get0_s(sig.get()), o + 32, 32) != 32)
        return {};
    return out;
}

QByteArray PrivateKey::csr(const QStringList& names) const {
    if (!key_ || names.isEmpty())
        return {};
    Owned<X509_REQ, X509_REQ_free> req(X509_REQ_new());
    X509_NAME* subject = X509_REQ_get_subject_name(req.get());
    const QByteArray cn = names.first().toUtf8();
    if (!X509_REQ_set_version(req.get(), 0) ||
        !X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                                    reinterpret_cast<const unsigned char*>(cn.constData()), -1, -1,
                                    0))
        return {};
    QByteArray san;
    for (const QString& name : names)
        san += (san.isEmpty() ? "DNS:" : ",DNS:") + name.toUtf8();
    STACK_OF(X509_EXTENSION)* exts = sk_X509_EXTENSION_new_null();
    X509_EXTENSION* ext =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, san.constData());
    bool ok = exts && ext && sk_X509_EXTENSION_push(exts, ext) > 0;
    if (!ok)
        X509_EXTENSION_free(ext);
    ok = ok && X509_REQ_add_extensions(req.get(), exts);
    sk_X509_EXTENSION_pop_free(exts, X509_EXTENSION_free);
    if (!ok || !X509_REQ_set_pubkey(req.get(), key_.get()) ||
        !X509_REQ_sign(req.get(), key_.get(), EVP_sha256()))
        return {};
    const int size = i2d_X509_REQ(req.get(), nullptr);
    if (size <= 0)
        return {};
    QByteArray der(size, '\0');
    auto* p = reinterpret_cast<unsigned char*>(der.data());
    i2d_X509_REQ(req.get(), &p);
    return der;
}

bool PrivateKey::matches(QByteArrayView certificatePem) const {
    if (!key_)
        return false;
    const Bio bio = readBio(certificatePem);
    Owned<X509, X509_free> cert(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    return cert && X509_check_private_key(cert.get(), key_.get()) == 1;
}

} // namespace Acme
