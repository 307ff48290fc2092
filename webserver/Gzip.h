#pragma once

#include <QByteArray>
#include <QByteArrayView>

// Text answers compressed for the clients that say they take it.

// The gzip form of bytes; "" when zlib fails.
QByteArray Gzip(QByteArrayView bytes);

// Whether an Accept-Encoding value takes gzip (a q of 0 refuses it).
bool AcceptsGzip(QByteArrayView acceptEncoding);

// Whether an answer of this Content-Type and size is worth compressing:
// text, JSON, JavaScript, SVG, a web manifest; a small one gains nothing.
bool Compressible(QByteArrayView type, qsizetype size);
