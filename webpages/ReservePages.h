#pragma once

#include <QString>

#include <functional>

class Clock;
class Dispatcher;
class ProgramFolder;
class SettingsStore;
struct PageRequest;

// The reservation pages: add1.asp asks for a moment, add2.asp adds, moves and
// deletes the operations of that moment, list.asp lists every reservation and
// deletes the chosen ones. Each change is followed by fillGrid, so the
// desktop and the scheduler see it at once.
struct ReservePageContext {
    const ProgramFolder& folder;
    SettingsStore& settings;
    const Clock& clock;
    std::function<void()> fillGrid; // may be empty
};

QString AddMomentPage(const ReservePageContext& c);                         // add1.asp
QString EditMomentPage(const ReservePageContext& c, const PageRequest& r);  // add2.asp
QString ReserveListPage(const ReservePageContext& c, const PageRequest& r); // list.asp

// One row of the lists: the number right-aligned in two places and the other
// fields in full-width characters, in fixed columns of ideographic spaces.
QString ReserveRowText(const QString& order, const QString& day, const QString& time,
                       const QString& device, const QString& function);

void InstallReservePages(Dispatcher& dispatcher, ReservePageContext context);
