// What the commands of kestrava-ir share: where the words go, standard input
// and output for "-", and the signal file's checks.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>

#include <cstdio>
#include <optional>

namespace irtool {

struct Command;

// The usage of one command, or of all of them for nullptr.
QByteArray usage(const Command* only);
const Command* commandNamed(const QString& name);

// Notes for the user go to standard output unless it carries the data.
extern FILE* notes;

bool isStdio(const QString& path);
std::optional<QByteArray> readStdin(qsizetype limit);
void outputTo(const QString& path);
bool writeOut(const QString& path, QByteArrayView bytes, QString* error);
QByteArray signalImage(QByteArrayView blob);
void print(const QString& text);
void complain(const QString& text);
bool readSignal(const QString& path, QByteArray* bytes);

enum class ShowAs { Text, Mode2, Json };

// The commands; each returns the exit status.
int list(bool json);
int capture(const QString& device, const QString& path, int seconds);
int send(const QString& device, const QString& path);
int show(const QString& path, ShowAs as);
int encode(const QString& spec, const QString& path);
int climateList();
int climate(const QStringList& args);
int convert(const QStringList& args);

} // namespace irtool
