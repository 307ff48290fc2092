#include "remotes/DesignLayout.h"

#include "remotes/Registry.h"

#include <array>
#include <initializer_list>

using namespace Qt::StringLiterals;

namespace {

// Labels stand 20 pixels below their picture unless a design says otherwise.
ButtonDef at(int id, const QString& picture, int left, int top) {
    return {id, picture, left, top, left, top + 20};
}

const QString Muji = u"muji"_s;

void add(std::vector<ButtonDef>& rows, int id, const QString& picture, int left, int top) {
    rows.push_back(at(id, picture, left, top));
}

// Blank buttons in a grid: ids from firstId, left to right over the columns,
// then the next row 32 pixels lower.
void blankGrid(std::vector<ButtonDef>& rows, int firstId, int rowCount, int firstTop,
               std::initializer_list<int> lefts) {
    int id = firstId;
    for (int row = 0; row < rowCount; ++row)
        for (int left : lefts)
            add(rows, id++, Muji, left, firstTop + 32 * row);
}

// Power and the digit block 1 to 9 shared by designs 1, 4 and 5.
void powerAndDigits(std::vector<ButtonDef>& rows) {
    add(rows, 0, u"power"_s, 16, 24);
    for (int n = 1; n <= 9; ++n)
        add(rows, n, QString::number(n), 16 + 48 * ((n - 1) % 3), 56 + 32 * ((n - 1) / 3));
}

ButtonDef& row(std::vector<ButtonDef>& rows, int id) {
    for (ButtonDef& b : rows)
        if (b.id == id)
            return b;
    return rows.front();
}

// Designs 4 and 5 number 10 to 12 below the digits.
void tenToTwelve(std::vector<ButtonDef>& rows) {
    add(rows, 10, u"10"_s, 16, 152);
    add(rows, 11, u"11"_s, 64, 152);
    add(rows, 12, u"12"_s, 112, 152);
}

DesignLayout design1() {
    DesignLayout d{1, {406, 166}, {369, 146}, 385, 416, 446, 167, {}};
    auto& r = d.buttons;
    powerAndDigits(r);
    add(r, 10, Muji, 16, 152);
    add(r, 11, u"0"_s, 64, 152);
    add(r, 12, Muji, 112, 152);
    add(r, 13, u"up"_s, 64, 184);
    add(r, 15, u"left"_s, 16, 216);
    add(r, 23, u"ok"_s, 64, 216);
    add(r, 16, u"right"_s, 112, 216);
    add(r, 14, u"down"_s, 64, 248);
    blankGrid(r, 17, 2, 280, {16, 64, 112});
    blankGrid(r, 24, 1, 344, {16, 64, 112});
    return d;
}

DesignLayout design2() {
    DesignLayout d{2, {230, 166}, {192, 146}, 209, 240, 270, 167, {}};
    add(d.buttons, 0, u"power"_s, 16, 24);
    blankGrid(d.buttons, 1, 4, 56, {16, 64, 112});
    return d;
}

DesignLayout design3() {
    DesignLayout d{3, {187, 133}, {150, 115}, 166, 197, 227, 134, {}};
    auto& r = d.buttons;
    add(r, 0, u"power"_s, 16, 24);
    add(r, 1, u"up"_s, 16, 56);
    add(r, 2, u"down"_s, 16, 120);
    add(r, 3, Muji, 64, 56);
    add(r, 4, Muji, 64, 88);
    add(r, 5, Muji, 64, 120);
    return d;
}

DesignLayout design4() {
    DesignLayout d{4, {323, 166}, {280, 146}, 300, 333, 363, 167, {}};
    auto& r = d.buttons;
    powerAndDigits(r);
    tenToTwelve(r);
    add(r, 13, u"up"_s, 16, 184);
    add(r, 14, u"down"_s, 16, 248);
    add(r, 15, Muji, 64, 184);
    add(r, 16, Muji, 64, 216);
    add(r, 17, Muji, 64, 248);
    add(r, 18, u"up"_s, 112, 184);
    add(r, 19, u"down"_s, 112, 248);
    // The bottom row's labels sit 18 pixels below the picture.
    for (int id : {14, 17, 19})
        row(r, id).labelTop = 266;
    return d;
}

DesignLayout design5() {
    DesignLayout d{5, {500, 215}, {458, 196}, 478, 510, 540, 216, {}};
    auto& r = d.buttons;
    powerAndDigits(r);
    tenToTwelve(r);
    add(r, 13, u"0"_s, 16, 184);
    for (int id = 14; id <= 17; ++id)
        add(r, id, Muji, 160, 56 + 32 * (id - 14));
    add(r, 18, Muji, 16, 232);
    add(r, 19, u"up"_s, 64, 214);
    add(r, 20, u"down"_s, 64, 246);
    add(r, 21, u"up"_s, 112, 214);
    add(r, 22, u"down"_s, 112, 246);
    add(r, 23, Muji, 160, 214);
    add(r, 24, Muji, 160, 246);
    blankGrid(r, 25, 3, 278, {16, 64, 112, 160});
    add(r, 37, u"up"_s, 64, 374);
    add(r, 38, u"down"_s, 64, 438);
    add(r, 39, u"left"_s, 16, 406);
    add(r, 40, u"right"_s, 112, 406);
    add(r, 41, Muji, 64, 406);
    add(r, 42, Muji, 160, 374);
    add(r, 43, Muji, 160, 406);
    add(r, 44, Muji, 160, 438);
    // Button 2's label lies 2 pixels off the rule both ways.
    row(r, 2).labelLeft = 66;
    row(r, 2).labelTop = 74;
    return d;
}

DesignLayout design6() {
    DesignLayout d{6, {515, 266}, {465, 243}, 494, 525, 555, 267, {}};
    add(d.buttons, 0, u"power"_s, 16, 24);
    blankGrid(d.buttons, 1, 13, 56, {16, 64, 112, 160, 208});
    return d;
}

const TestModeDevice* testDeviceOfDesign(int design) {
    for (const TestModeDevice& d : TestModeDevices())
        if (d.design == design)
            return &d;
    return nullptr;
}

} // namespace

const DesignLayout* LayoutOfDesign(int design) {
    static const std::array<DesignLayout, 6> layouts = {design1(), design2(), design3(),
                                                        design4(), design5(), design6()};
    if (design < 1 || design > 6)
        return nullptr;
    return &layouts[size_t(design - 1)];
}

bool HasPageTestLabels(int design) {
    return design == 3 || design == 4 || design == 5;
}

QString PageTestLabel(int design, int buttonId) {
    if (!HasPageTestLabels(design))
        return {};
    if (design == 4 && buttonId == 13)
        return u"+0"_s;
    const TestModeDevice* device = testDeviceOfDesign(design);
    return device ? device->function(buttonId) : QString();
}
