// A certificate authority's JSON answers: directory, order, authorization and
// problem documents, each reader given the same bytes.
#include "tls/AcmeMessages.h"

#include <cstdlib>

namespace {

void checkUrl(const QUrl& url, bool mayBeEmpty) {
    if (url.isEmpty() ? !mayBeEmpty : url.scheme() != u"https")
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    if (const auto d = Acme::ParseDirectory(bytes)) {
        checkUrl(d->newNonce, false);
        checkUrl(d->newAccount, false);
        checkUrl(d->newOrder, false);
    }
    if (const auto o = Acme::ParseOrder(bytes)) {
        checkUrl(o->finalize, false);
        checkUrl(o->certificate, true);
        for (const QUrl& url : o->authorizations)
            checkUrl(url, false);
        if (o->error)
            o->error->text();
    }
    if (const auto a = Acme::ParseAuthorization(bytes)) {
        for (const Acme::Challenge& c : a->challenges)
            checkUrl(c.url, false);
        // A token reaches a path: nothing but base64url.
        if (const Acme::Challenge* c = a->http01(); c && !Acme::IsToken(c->token))
            abort();
    }
    if (const auto p = Acme::ParseProblem(bytes); p && p->text().isEmpty())
        abort();
    return 0;
}
