#include "webpages/MenuPages.h"
