#include "power/SuspendWindow.h"

#include "power/Power.h"

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

SuspendWindow::SuspendWindow(Power& power, QWidget* parent)
    : QWidget(parent, Qt::Window | Qt::WindowStaysOnTopHint) {
    setObjectName(u"frmSuspend"_s);
    setWindowTitle(u"Kestrava"_s);
    label1_ = new QLabel(u"休止状態にします．．．"_s, this);
    label1_->setObjectName(u"Label1"_s);
    progressBar1_ = new QProgressBar(this);
    progressBar1_->setObjectName(u"ProgressBar1"_s);
    progressBar1_->setRange(0, 100);
    progressBar1_->setTextVisible(false);
    command1_ = new QPushButton(u"キャンセル"_s, this);
    command1_->setObjectName(u"Command1"_s);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(label1_);
    layout->addWidget(progressBar1_);
    layout->addWidget(command1_, 0, Qt::AlignRight);
    setFixedWidth(320);

    connect(command1_, &QPushButton::clicked, &power, &Power::Cancel);
    connect(&power, &Power::countdownStarted, this, [this] {
        progressBar1_->setValue(0);
        show();
        raise();
        activateWindow();
    });
    connect(&power, &Power::countdownStep, progressBar1_, &QProgressBar::setValue);
    connect(&power, &Power::countdownEnded, this, &QWidget::hide);
}
