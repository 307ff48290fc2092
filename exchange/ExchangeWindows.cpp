#include "exchange/ExchangeWindows.h"

#include "core/UserPrompt.h"
#include "exchange/Exchange.h"

#include <QCheckBox>
#include <QDir>
#include <QFileDialog>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>

#include <algorithm>

using namespace Qt::StringLiterals;

const QString ExchangeWindow::FolderDialogTitle = u"フォルダを指定"_s;
const QString ExportWindow::NothingChosenText =
    u"エクスポートしたい機器名を少なくともひとつ選択してください。"_s;
const QString ExportWindow::NoFolderText =
    u"エクスポートファイルを保存する場所を指定してください。"_s;
const QString ExportWindow::FailedText =
    u"エクスポートできませんでした。保存場所を確認してください。"_s;

namespace {
QPushButton* Button(QWidget* parent, const QString& name, const QString& text) {
    auto* b = new QPushButton(text, parent);
    b->setObjectName(name);
    b->setAutoDefault(false);
    return b;
}
} // namespace

ExchangeWindow::ExchangeWindow(const ProgramFolder& folder, SettingsStore& settings,
                               UserPrompt& prompt, const QString& title, QWidget* parent)
    : QDialog(parent), folder_(folder), settings_(settings), prompt_(prompt) {
    setWindowTitle(title);
    setAttribute(Qt::WA_DeleteOnClose);
    Label1 = new QLabel(this);
    Label1->setObjectName(u"Label1"_s);
    Label1->setWordWrap(true);
    Label2 = new QLabel(this);
    Label2->setObjectName(u"Label2"_s);
    Label2->setWordWrap(true);
    txtLoc = new QLineEdit(this);
    txtLoc->setObjectName(u"txtLoc"_s);
    cmdRefer = Button(this, u"cmdRefer"_s, u"参照"_s);
    chkAll = new QCheckBox(u"全部選択する"_s, this);
    chkAll->setObjectName(u"chkAll"_s);
    cmdCancel = Button(this, u"cmdCancel"_s, u"キャンセル"_s);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);

    chooseFolder = [this](const QString& start) {
        return QFileDialog::getExistingDirectory(this, FolderDialogTitle, start);
    };
    connect(cmdRefer, &QPushButton::clicked, this, [this] {
        if (QString folder = chooseFolder(txtLoc->text()); !folder.isEmpty())
            txtLoc->setText(QDir::toNativeSeparators(folder));
    });
}

void ExchangeWindow::buildList(QListWidget* list) {
    list_ = list;
    list->setSelectionMode(QAbstractItemView::MultiSelection);
    connect(chkAll, &QCheckBox::clicked, this, [this](bool all) {
        if (all)
            list_->selectAll();
        else
            list_->clearSelection();
    });
}

// The chosen entries in list order.
static QList<QListWidgetItem*> Chosen(QListWidget* list) {
    QList<QListWidgetItem*> chosen;
    for (int i = 0; i < list->count(); ++i)
        if (list->item(i)->isSelected())
            chosen << list->item(i);
    return chosen;
}

ExportWindow::ExportWindow(const ProgramFolder& folder, SettingsStore& settings, UserPrompt& prompt,
                           QWidget* parent)
    : ExchangeWindow(folder, settings, prompt, u"Kestrava - エクスポート"_s, parent) {
    setObjectName(u"frmExport"_s);
    Label1->setText(
        u"学習済みリモコン信号をエクスポートしたい機器をリストから選択してください。"_s);
    Label2->setText(NoFolderText);
    lstDevices = new QListWidget(this);
    lstDevices->setObjectName(u"lstDevices"_s);
    buildList(lstDevices);
    cmdExport = Button(this, u"cmdExport"_s, u"エクスポート"_s);
    connect(cmdExport, &QPushButton::clicked, this, &ExportWindow::exportChosen);

    auto* grid = new QGridLayout(this);
    grid->addWidget(Label1, 0, 0, 1, 2);
    grid->addWidget(lstDevices, 1, 0, 1, 2);
    grid->addWidget(chkAll, 2, 0, 1, 2);
    grid->addWidget(Label2, 3, 0, 1, 2);
    grid->addWidget(txtLoc, 4, 0);
    grid->addWidget(cmdRefer, 4, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cmdExport);
    buttons->addWidget(cmdCancel);
    grid->addLayout(buttons, 5, 0, 1, 2);
    Load();
}

void ExportWindow::Load() {
    lstDevices->clear();
    for (const ExportableRemote& r : ExportableRemotes(settings_)) {
        auto* item = new QListWidgetItem(r.name, lstDevices);
        item->setData(Qt::UserRole, r.slot);
    }
}

void ExportWindow::exportChosen() {
    const QList<QListWidgetItem*> chosen = Chosen(lstDevices);
    if (chosen.isEmpty()) {
        prompt_.Warning(NothingChosenText);
        return;
    }
    if (txtLoc->text().isEmpty()) {
        prompt_.Warning(NoFolderText);
        return;
    }
    const QString folder = QDir::fromNativeSeparators(txtLoc->text());
    QDir().mkpath(folder);
    for (QListWidgetItem* item : chosen) {
        const QString device = item->text();
        // Archives already written stay.
        if (!ExportDevice(folder_, settings_, device, item->data(Qt::UserRole).toInt(),
                          ArchivePath(folder, device))) {
            prompt_.Warning(FailedText);
            return;
        }
    }
    accept();
}

QString ImportWindow::RefusedText(const QString& file, const QString& reason) {
    return u"%1 はインポートできませんでした。\n(%2)"_s.arg(file, reason);
}

ImportWindow::ImportWindow(const ProgramFolder& folder, SettingsStore& settings, UserPrompt& prompt,
                           QWidget* parent)
    : ExchangeWindow(folder, settings, prompt, u"Kestrava - インポート"_s, parent) {
    setObjectName(u"frmImport"_s);
    Label1->setText(u"インポートしたいファイルをリストから選択してください。"_s);
    Label2->setText(u"インポートするファイルの場所を指定してください。"_s);
    lstFiles = new QListWidget(this);
    lstFiles->setObjectName(u"lstFiles"_s);
    buildList(lstFiles);
    chkDuplicate =
        new QCheckBox(u"インポートする機器名がすでに登録されている場合は上書きする"_s, this);
    chkDuplicate->setObjectName(u"chkDuplicate"_s);
    cmdImport = Button(this, u"cmdImport"_s, u"インポート"_s);
    connect(cmdImport, &QPushButton::clicked, this, &ImportWindow::importChosen);
    connect(txtLoc, &QLineEdit::textChanged, this, &ImportWindow::fillFiles);

    auto* grid = new QGridLayout(this);
    grid->addWidget(Label2, 0, 0, 1, 2);
    grid->addWidget(txtLoc, 1, 0);
    grid->addWidget(cmdRefer, 1, 1);
    grid->addWidget(Label1, 2, 0, 1, 2);
    grid->addWidget(lstFiles, 3, 0, 1, 2);
    grid->addWidget(chkAll, 4, 0, 1, 2);
    grid->addWidget(chkDuplicate, 5, 0, 1, 2);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cmdImport);
    buttons->addWidget(cmdCancel);
    grid->addLayout(buttons, 6, 0, 1, 2);
}

void ImportWindow::fillFiles() {
    lstFiles->clear();
    const QString folder = QDir::fromNativeSeparators(txtLoc->text());
    if (folder.isEmpty())
        return;
    QStringList names = QDir(folder).entryList({u"*.kxp"_s}, QDir::Files);
    std::sort(names.begin(), names.end()); // ordinal, as the classic list sorts
    lstFiles->addItems(names);
}

void ImportWindow::importChosen() {
    const QString folder = QDir::fromNativeSeparators(txtLoc->text());
    for (QListWidgetItem* item : Chosen(lstFiles)) {
        const ImportResult r = ImportArchive(
            folder_, settings_, QDir(folder).filePath(item->text()), chkDuplicate->isChecked());
        if (r.outcome == ImportResult::Refused)
            prompt_.Warning(RefusedText(item->text(), r.reason));
    }
    emit devicesChanged();
    accept();
}
