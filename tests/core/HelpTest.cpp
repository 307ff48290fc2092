#include "core/Help.h"
#include "support/TempFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <gtest/gtest.h>

#include <set>

using namespace Qt::StringLiterals;

namespace {

const QString TreeHelp = QStringLiteral(KESTRAVA_HELP_SOURCE);

QString readText(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

QStringList captures(const QString& text, const QString& pattern) {
    QStringList out;
    for (const auto& m : QRegularExpression(pattern).globalMatch(text))
        out << m.captured(1);
    return out;
}

} // namespace

// Each page is UTF-8 Japanese, offline, links only to existing anchors, and is in the contents.
TEST(HelpPages, WellFormedAndLinked) {
    const QDir dir(TreeHelp);
    const QStringList names = dir.entryList({u"*.html"_s}, QDir::Files);
    ASSERT_GE(names.size(), 4);
    std::set<QString> fromIndex{u"index.html"_s};
    for (const QString& name : names) {
        SCOPED_TRACE(name.toStdString());
        const QString text = readText(dir.filePath(name));
        EXPECT_TRUE(text.contains(u"<meta charset=\"utf-8\">"_s, Qt::CaseInsensitive));
        EXPECT_TRUE(text.contains(QRegularExpression(u"<html [^>]*lang=\"ja\""_s)));
        EXPECT_FALSE(text.contains(u"<script"_s, Qt::CaseInsensitive));
        for (const QString& target : captures(text, uR"re(\s(?:href|src)="([^"]*)")re"_s)) {
            SCOPED_TRACE(target.toStdString());
            EXPECT_FALSE(target.contains(u':') || target.startsWith(u"//"));
            const QString file = target.section(u'#', 0, 0);
            const QString page = file.isEmpty() ? name : file;
            EXPECT_TRUE(QFileInfo(dir.filePath(page)).isFile()) << "no such page";
            if (target.contains(u'#')) {
                const QStringList ids =
                    captures(readText(dir.filePath(page)), uR"re(\sid="([^"]*)")re"_s);
                EXPECT_EQ(ids.count(target.section(u'#', 1)), 1);
            }
            if (name == u"index.html")
                fromIndex.insert(page);
        }
    }
    for (const QString& name : names)
        EXPECT_TRUE(fromIndex.count(name)) << "not in the contents: " << name.toStdString();
}

// The environment decides alone when set, else the copy beside the program; only with an index.
TEST(HelpFolder, EnvironmentThenBesideTheProgram) {
    TempFolder t;
    const QString env = t.path(u"env"), bin = t.path(u"usr/bin"),
                  installed = t.path(u"usr/share/kestrava/help");
    t.writeFile(u"env/index.html", {});
    t.writeFile(u"usr/share/kestrava/help/index.html", {});

    EXPECT_EQ(FindHelpFolder(env, bin), env);
    EXPECT_EQ(FindHelpFolder({}, bin), installed);
    EXPECT_EQ(FindHelpFolder({}, t.path(u"opt/bin")), QString());
    EXPECT_EQ(FindHelpFolder(t.path(u"missing"), bin), QString());
    QFile::remove(installed + u"/index.html"_s);
    EXPECT_EQ(FindHelpFolder({}, bin), QString());

    // A page's address comes from the tree, with its fragment.
    qunsetenv("KESTRAVA_HELP_DIR");
    const QUrl url = HelpPageUrl(u"learning.html#aircon"_s);
    EXPECT_EQ(QFileInfo(url.toLocalFile()).canonicalFilePath(),
              QFileInfo(TreeHelp + u"/learning.html"_s).canonicalFilePath());
    EXPECT_EQ(url.fragment(), u"aircon"_s);
    EXPECT_TRUE(HelpPageUrl(u"nothing.html"_s).isEmpty());
}
