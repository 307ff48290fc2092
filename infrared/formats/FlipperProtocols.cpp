#include "infrared/formats/FlipperProtocols.h"

using namespace Qt::StringLiterals;

bool FlipperParsedSignal(const QString& protocol, uint32_t, uint32_t, NamedSignal*, QString* why) {
    *why = u"protocol %1 is not known"_s.arg(protocol);
    return false;
}

bool FlipperParsedOf(const NamedSignal&, QString*, uint32_t*, uint32_t*) {
    return false;
}
