#pragma once

// Raises the soft limit of open descriptors towards the hard limit (at most
// 8192): many simultaneous web clients need more than the usual 1024.
void RaiseFileLimit();

// Reads the local time zone once: without TZ the C library looks at
// /etc/localtime again on every conversion to local time.
void PinTimeZone();
