#include "camera/CameraDialogs.h"

#include "camera/Camera.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

ControlsDialog::ControlsDialog(Camera& camera, QWidget* parent) : QDialog(parent), camera_(camera) {
    setWindowTitle(u"ビデオソース"_s);
    setMinimumWidth(360);
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    layout->addLayout(form);
    for (const SourceControl& c : camera_.controls()) {
        const quint32 id = c.id;
        QWidget* editor = nullptr;
        switch (c.kind) {
        case SourceControl::Kind::Integer: {
            auto* row = new QWidget(this);
            auto* rowLayout = new QHBoxLayout(row);
            rowLayout->setContentsMargins(0, 0, 0, 0);
            auto* slider = new QSlider(Qt::Horizontal, row);
            auto* spin = new QSpinBox(row);
            slider->setRange(c.minimum, c.maximum);
            slider->setSingleStep(c.step);
            // Full 32-bit ranges are common: the span does not fit an int.
            slider->setPageStep(
                int(std::max<qint64>(c.step, (qint64(c.maximum) - c.minimum) / 10)));
            spin->setRange(c.minimum, c.maximum);
            spin->setSingleStep(c.step);
            rowLayout->addWidget(slider, 1);
            rowLayout->addWidget(spin);
            connect(slider, &QSlider::valueChanged, spin, &QSpinBox::setValue);
            connect(spin, &QSpinBox::valueChanged, this, [this, id, slider](int value) {
                const QSignalBlocker block(slider);
                slider->setValue(value);
                apply(id, value);
            });
            form->addRow(c.name, row);
            editor = spin;
            break;
        }
        case SourceControl::Kind::Boolean: {
            auto* check = new QCheckBox(this);
            connect(check, &QCheckBox::toggled, this,
                    [this, id](bool on) { apply(id, on ? 1 : 0); });
            form->addRow(c.name, check);
            editor = check;
            break;
        }
        case SourceControl::Kind::Menu: {
            auto* combo = new QComboBox(this);
            for (const auto& [value, name] : c.items)
                combo->addItem(name, value);
            connect(combo, &QComboBox::activated, this,
                    [this, id, combo](int row) { apply(id, combo->itemData(row).toInt()); });
            form->addRow(c.name, combo);
            editor = combo;
            break;
        }
        }
        editor->setObjectName(c.name);
        editors_[id] = editor;
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    buttons->button(QDialogButtonBox::Close)->setText(u"閉じる"_s);
    default_ = buttons->addButton(u"既定値(&D)"_s, QDialogButtonBox::ResetRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(default_, &QPushButton::clicked, this, [this] {
        QList<std::pair<quint32, int>> values;
        for (const SourceControl& c : camera_.controls())
            if (!c.readOnly && c.value != c.defaultValue)
                values.append({c.id, c.defaultValue});
        camera_.setControls(values);
        load();
    });
    layout->addWidget(buttons);
    load();
}

void ControlsDialog::apply(quint32 id, int value) {
    camera_.setControls({{id, value}});
    // A refused value goes back, and controls another one switches show it.
    load();
}

void ControlsDialog::load() {
    for (const SourceControl& c : camera_.controls()) {
        const auto it = editors_.find(c.id);
        if (it == editors_.end())
            continue;
        QWidget* editor = it->second;
        const QSignalBlocker block(editor);
        editor->setEnabled(!c.readOnly);
        if (auto* spin = qobject_cast<QSpinBox*>(editor)) {
            spin->setValue(c.value);
            auto* slider = spin->parentWidget()->findChild<QSlider*>();
            const QSignalBlocker blockSlider(slider);
            slider->setValue(c.value);
            slider->setEnabled(!c.readOnly);
        } else if (auto* check = qobject_cast<QCheckBox*>(editor)) {
            check->setChecked(c.value != 0);
        } else if (auto* combo = qobject_cast<QComboBox*>(editor)) {
            combo->setCurrentIndex(combo->findData(c.value));
        }
    }
}

FormatDialog::FormatDialog(Camera& camera, QWidget* parent) : QDialog(parent), camera_(camera) {
    setWindowTitle(u"ビデオフォーマット"_s);
    auto* form = new QFormLayout(this);
    format_ = new QComboBox(this);
    size_ = new QComboBox(this);
    for (const SourceFormat& f : camera_.formats())
        format_->addItem(f.name == FourccText(f.fourcc)
                             ? f.name
                             : u"%1 (%2)"_s.arg(f.name, FourccText(f.fourcc)),
                         f.fourcc);
    form->addRow(u"ピクセル形式"_s, format_);
    form->addRow(u"サイズ"_s, size_);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Cancel)->setText(u"キャンセル"_s);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
    connect(format_, &QComboBox::currentIndexChanged, this, &FormatDialog::fillSizes);
    selectCurrent();
}

void FormatDialog::fillSizes() {
    const quint32 fourcc = format_->currentData().toUInt();
    size_->clear();
    for (const SourceFormat& f : camera_.formats())
        if (f.fourcc == fourcc)
            for (const QSize& s : f.sizes)
                size_->addItem(u"%1 x %2"_s.arg(s.width()).arg(s.height()), s);
}

void FormatDialog::selectCurrent() {
    const auto [fourcc, size] = camera_.format();
    format_->setCurrentIndex(std::max(0, format_->findData(fourcc)));
    fillSizes();
    size_->setCurrentIndex(std::max(0, size_->findData(size)));
}

void FormatDialog::accept() {
    if (format_->currentIndex() < 0 || size_->currentIndex() < 0)
        return;
    if (camera_.setFormat(format_->currentData().toUInt(), size_->currentData().toSize()))
        QDialog::accept();
    else
        selectCurrent(); // the warning has shown; the stream is as it was
}
