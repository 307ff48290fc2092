#pragma once

#include <QDialog>

#include <map>

class Camera;
class QComboBox;
class QPushButton;

// The open camera's controls: spin boxes with sliders, check boxes and lists,
// each applied as soon as it changes. Each editor is named after its control.
class ControlsDialog : public QDialog {
    Q_OBJECT
public:
    ControlsDialog(Camera& camera, QWidget* parent = nullptr);
    QPushButton* defaultButton() const { return default_; }

private:
    void load(); // shows what the device holds now
    void apply(quint32 id, int value);

    Camera& camera_;
    std::map<quint32, QWidget*> editors_;
    QPushButton* default_;
};

// The open camera's pixel format and frame size; OK restarts the stream in them.
class FormatDialog : public QDialog {
    Q_OBJECT
public:
    FormatDialog(Camera& camera, QWidget* parent = nullptr);
    QComboBox* formatBox() const { return format_; }
    QComboBox* sizeBox() const { return size_; }
    void accept() override;

private:
    void fillSizes();
    void selectCurrent();

    Camera& camera_;
    QComboBox *format_, *size_;
};
