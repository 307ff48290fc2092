// A request to a front beside the pages: its framing and head, then the API's
// routing and JSON body, as the server and the API read them.
#include "api/ApiRequest.h"
#include "webserver/FrontRequest.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    // The first byte picks the body limit.
    const qsizetype maxBody = (data[0] & 1) ? 64 * 1024 : 16;
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data) + 1, qsizetype(size - 1));
    RequestLinePath(bytes);
    FrontRequest request;
    qsizetype length = -1;
    if (ReadFrontRequest(bytes, maxBody, &request, &length) != FrontFrame::Complete)
        return 0;
    if (length < 0 || length > bytes.size() || request.body.size() > maxBody)
        abort();
    FrontCrossSite(request);
    // Reading, and an action with neither body nor type, are never refused for a type.
    if (Api::CheckBodyType(request.method, request.header("content-type"), request.body).status &&
        (request.method == "GET" ||
         (request.body.isEmpty() && request.header("content-type").isEmpty())))
        abort();
    Api::Call call;
    const Api::Refusal refusal = Api::ParseCall(request.method, request.path, request.body, &call);
    if (refusal.status == 0 &&
        (call.remote < 0 || call.remote > Api::MaxRemoteIdInPath || call.key > Api::MaxKeyIdInPath))
        abort();
    if (refusal.status == 405 && refusal.allow.isEmpty())
        abort();
    return 0;
}
