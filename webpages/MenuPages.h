#pragma once

#include <QString>

class Dispatcher;
class SettingsStore;

// What the head and body tag of a page look like; pages differ in these details.
struct PageFrame {
    bool languageMeta = true; // Content-Language meta
    bool headBreaks = true;   // CRLF after each element of the head
    QString title;
    QString bodyTag; // whole tag, e.g. "<body>"
};

// "<html>", "<head>", the metas, the title, "</head>", the body tag.
QString PageHead(const PageFrame& frame);

// The body tag of the browser pages.
extern const QString BrowserBodyTag;

QString DefaultPage(SettingsStore& settings);    // default.asp
QString RemoteListPage(SettingsStore& settings); // remote.asp
QString CellPage(SettingsStore& settings);       // cell.asp

// Routes default.asp, remote.asp and cell.asp.
void InstallMenuPages(Dispatcher& dispatcher, SettingsStore& settings);
