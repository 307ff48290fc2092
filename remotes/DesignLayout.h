#pragma once

#include <QString>

#include <vector>

// Where things lie on each of the six remote designs, in pixels. The web
// pages place pictures by these; the on-screen remote windows use the same
// pictures and positions.

// One picture button. The picture is pic/<picture>.gif, pressed
// pic/<picture>-p.gif (35 x 20); the function name stands at the label position.
struct ButtonDef {
    int id;
    QString picture;
    int left, top;
    int labelLeft, labelTop;
};

struct PanelSize {
    int height, width;
};

struct DesignLayout {
    int design;                     // 1 to 6
    PanelSize panelB;               // body, at 0/0
    PanelSize panelA;               // inner face, at 9/9
    int nameTop;                    // device name, at LEFT 20
    int menuTop;                    // link back to the menu, at LEFT 0
    int reloadTop;                  // link that reloads the snapshot, at LEFT 0
    int snapshotLeft;               // camera snapshot, at TOP 0
    std::vector<ButtonDef> buttons; // in page order, which is not always id order
};

// The layout of design 1 to 6; nullptr for any other number.
const DesignLayout* LayoutOfDesign(int design);

// What the graphic page of design 3, 4 or 5 shows on a button in test mode,
// "" for none. These follow the fixed test devices, except that design 4's
// page shows "+0" on button 13 where the device has "ch+". Designs 1, 2 and 6
// have no test labels: the function is empty.
QString PageTestLabel(int design, int buttonId);
bool HasPageTestLabels(int design);
