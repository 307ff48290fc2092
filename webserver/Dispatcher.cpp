#include "webserver/Dispatcher.h"
