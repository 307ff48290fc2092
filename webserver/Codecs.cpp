#include "webserver/Codecs.h"
