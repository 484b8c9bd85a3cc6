// Expansion of tildes and variable references, and splitting of command lines.

#include "common/compatibility_simple/pathexpansion.h"
#include "common/mlib.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"

#include <QTest>

#include <pwd.h>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

// The expansion in an environment of these entries, which need not hold a '='.
static QString expandedIn(QByteArrayList entries, const QByteArray& text)
{
    std::vector<char*> pointers;
    for (QByteArray& entry : entries) {
        pointers.push_back(entry.data());
    }
    pointers.push_back(nullptr);
    char** const previous = environ;
    environ = pointers.data();
    const QString expanded = expandVars(QString::fromUtf8(text));
    environ = previous;
    return expanded;
}

class PathExpansionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void expands()
    {
        for (const QString& text : {u"100%"_s, u"a$b"_s, u"~x"_s}) {
            QVERIFY(containsEnvVarOrTilde(text));
        }
        QVERIFY(!containsEnvVarOrTilde(u"a~b"_s));
        const QByteArray root(getpwnam("root")->pw_dir);
        const QByteArray longName(40000, 'N');
        // clang-format off
        const struct { QByteArrayList environment; QByteArray text, expected; } rows[] = {
            {{"HOME=/home"}, "~/$HOME", "/home//home"}, {{"HOME=/home"}, "~ x/y", "/home x/y"},
            {{"HOME=/home"}, "~", "/home"}, {{"HOME=/home"}, "a~b", "a~b"},
            {{}, "~root/x", root + "/x"}, {{}, "~root x/y", root + " x/y"}, {{}, "~root", root},
            {{}, "~no-such-user/x", "~no-such-user/x"}, {{}, " a \t", "a"},
            // The longest word is a variable's name; letters of all scripts are in words.
            {{"H=/h"}, "  ${H}/x ${H $H}", "/h/x ${H /h}"}, {{"H=/h"}, "$H/$H$H", "/h//h/h"},
            {{"H=/h"}, "$HX $H_ $H1 ${HX} $NONE", "$HX $H_ $H1 ${HX} $NONE"},
            {{"H=/h"}, "$H\xc3\xa9 $H\xf0\x9d\x94\xb8", "$H\xc3\xa9 $H\xf0\x9d\x94\xb8"},
            {{"f%=x"}, "$f% $f%a", "$f% xa"},
            {{"H=\\1\\\\$&\xc3\xa9"}, "$H", "\\1\\\\$&\xc3\xa9"},
            // Variables are replaced in their order, in the values of earlier ones too.
            {{"A=$B", "B=b"}, "$A", "b"}, {{"B=b", "A=$B"}, "$A", "$B"}, {{"A=1", "A="}, "$A", "1"},
            // No equals sign, no variable; a name is a pattern, or not.
            {{"A", "B=b"}, "$A $B", "$A b"}, {{"A(=x", "B=b"}, "$A( $B", "$A( b"},
            {{"A.C=\\1"}, "$ABC $A.C ${AxC}", "\\1 \\1 \\1"}, {{"A|B=x"}, "$A ${B}", "x ${x}"},
            // Where there is nothing to a pattern, none is compiled: this would be too large.
            {{longName + "=x"}, '$' + longName, "x"},
        };
        // clang-format on
        for (const auto& row : rows) {
            QCOMPARE(expandedIn(row.environment, row.text), QString::fromUtf8(row.expected));
        }
        // Each variable doubles the text, by name and by pattern.
        for (const char* entry : {"A=$A/$A/", "A.?=$A/$A/"}) {
            const qsizetype size = expandedIn(QByteArrayList(100, entry), "$A/").size();
            QVERIFY(size > 65536 && size < 4 * 65536);
        }
        // No environment at all.
        char** const previous = environ;
        environ = nullptr;
        const QString expanded = expandVars(u" $HOME"_s);
        environ = previous;
        QCOMPARE(expanded, u"$HOME"_s);
    }

    void parsesArguments()
    {
        // clang-format off
        const char* const rows[][2] = {
            {"", ""}, {" \n ", ""}, {"a  b", "<a><b>"}, {"a\nb", "<a><b>"}, {"a\tb", "<a\tb>"},
            // Quotes, also those that are never closed.
            {"a''b", "<ab>"}, {"''", "<>"}, {"x \"\" y", "<x><><y>"}, {"\"a b\" c", "<a b><c>"},
            {"a'b c'\"d e\"f", "<ab cd ef>"}, {"'ab c", "<ab c>"}, {"x '", "<x><>"}, {"\"a", "<a>"},
            // A backslash escapes in double quotes, is itself in single ones, and else dropped.
            {"\"a\\\"b\\c\\\\d\"", "<a\"bc\\d>"}, {"'a\\b'", "<a\\b>"}, {"a\\ b\\\\\\", "<a><b>"},
            {"\\'a b'", "<a b>"}, {"x \"a\\", "<x><a>"}, {"\\", ""},
        };
        // clang-format on
        for (const auto& [text, expected] : rows) {
            const QString arguments = bracketed(parseArgs(QString::fromLatin1(text)));
            QCOMPARE(QByteArray(text) + " gives " + arguments.toLatin1(),
                     QByteArray(text) + " gives " + expected);
        }
        qputenv("PELK_ALLOW_NEWLINE_IN_ARGS", "yes");
        discardEnvCache();
        QCOMPARE(bracketed(parseArgs(u"a\nb c"_s)), u"<a\nb><c>"_s);
        clearSettings({"ALLOW_NEWLINE_IN_ARGS"});
    }

    void splitsCStrings()
    {
        const char* const rows[][2] = {{"a, ,, b,c, ", "<a><,><b,c><>"}, {"", "<>"}};
        for (const auto& [text, expected] : rows) {
            char** vector = m_strsplit(text, ", ");
            QByteArray parts;
            for (char** entry = vector; *entry; ++entry) {
                parts += QByteArray("<") + *entry + '>';
            }
            m_strfreev(vector);
            QCOMPARE(parts, expected);
        }
        QCOMPARE(m_strsplit(nullptr, ","), nullptr);
        QCOMPARE(m_strdup(nullptr), nullptr);
        m_strfreev(nullptr);
    }
};

QTEST_APPLESS_MAIN(PathExpansionTest)
#include "tst_pathexpansion.moc"
