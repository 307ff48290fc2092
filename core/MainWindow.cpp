#include "core/MainWindow.h"

#include "core/Application.h"
#include "core/ProgramFolder.h"
#include "core/Settings.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDialog>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

MainWindow::MainWindow(Application& app, QWidget* parent) : QWidget(parent), app_(app) {
    setWindowTitle(u"Kestrava"_s);
    auto* layout = new QVBoxLayout(this);
    lblAddr_ = new QLabel(this);
    QString port = app_.settings.ReadIni(u"WebServer", u"Port");
    lblAddr_->setText(u"URL  http://localhost"_s +
                      (port.isEmpty() || port == u"80" ? QString() : u":"_s + port));
    layout->addWidget(lblAddr_);
    auto* folder = new QLabel(app_.folder.root(), this);
    folder->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(folder);
    auto* quit = new QPushButton(u"終了"_s, this);
    layout->addWidget(quit);
    connect(quit, &QPushButton::clicked, this, &QWidget::close);
    connect(&app_, &Application::unloadWindows, this, [this] {
        // A box left open would keep its own event loop, and the program, alive.
        for (QWidget* w : QApplication::topLevelWidgets())
            if (auto* dialog = qobject_cast<QDialog*>(w); dialog && dialog->isVisible())
                dialog->reject();
        hide();
    });
}

void MainWindow::closeEvent(QCloseEvent* event) {
    event->accept();
    app_.Close();
}
