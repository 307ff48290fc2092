#pragma once

#include <QString>

class QWidget;

// Opens a help page ("index.html", "learning.html#aircon") in the user's
// browser. When the page is missing or nothing opens it, says so in a box
// and returns false.
bool OpenHelp(const QString& page, QWidget* parent = nullptr);
