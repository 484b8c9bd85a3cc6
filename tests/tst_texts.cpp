// What is read from texts: paths with variables, command lines, versions; and the
// installation's directories.

#include "common/compatibility_simple/pathexpansion.h"
#include "common/compatibility_simple/versionstrings.h"
#include "common/mlib.h"
#include "common/talvoraglobals.h"
#include "tests/support/network.h"
#include "tests/support/settings.h"
#include "tests/support/texts.h"
#include "version/hgid.h"

#include <QTest>

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>
#include <vector>

// The expansion in an environment of these entries, which need not hold a '='.
static QString expandedIn(std::vector<const char*> entries, const QByteArray& path)
{
    entries.push_back(nullptr);
    char** const previous = environ;
    environ = const_cast<char**>(entries.data());
    const QString expanded = expandVars(QString::fromUtf8(path));
    environ = previous;
    return expanded;
}

class TextsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Registered before the instance is made, so called after it is gone.
    void initTestCase()
    {
        atexit([] { TalvoraGlobals::instance() ? abort() : void(); });
        clearSettings({"BG_TMPDIR", "VERSION", "RELEASE_VERSION", "ALLOW_NEWLINE_IN_ARGS"});
    }

    void expandsPaths()
    {
        const QByteArray root(getpwnam("root")->pw_dir);
        const QByteArray longEntry = QByteArray(40000, 'N') + "=x";
        // clang-format off
        const struct { std::vector<const char*> environment; QByteArray path, expected; } rows[] = {
            {{"HOME=/home"}, "~/$HOME", "/home//home"}, {{"HOME=/home"}, "~ x/y", "/home x/y"},
            {{}, "~root x/y", root + " x/y"}, {{}, "~nobody-here/x", "~nobody-here/x"},
            {{}, " a~b \t", "a~b"},
            // The longest word is a variable's name; letters of all scripts are in words.
            {{"H=/h"}, "  ${H}/x ${H $H$H", "/h/x ${H /h/h"},
            {{"H=/h"}, "$HX $H_ ${HX} $NONE", "$HX $H_ ${HX} $NONE"},
            {{"H=/h"}, "$H\xc3\xa9 $H\xf0\x9d\x94\xb8", "$H\xc3\xa9 $H\xf0\x9d\x94\xb8"},
            {{"f%=x"}, "$f% $f%a", "$f% xa"}, {{"H=\\1=\\\\$&\xc3\xa9"}, "$H", "\\1=\\\\$&\xc3\xa9"},
            // Variables are replaced in their order, in the values of earlier ones too.
            {{"A=$B", "B=b"}, "$A", "b"}, {{"B=b", "A=$B"}, "$A", "$B"},
            // No equals sign, no variable; a name is a pattern, or not.
            {{"A", "B=b"}, "$A $B", "$A b"}, {{"A(=x", "B=b"}, "$A( $B", "$A( b"},
            {{"A.C=\\1"}, "$ABC $A.C ${AxC} $ABC\xc3\xa9", "\\1 \\1 \\1 $ABC\xc3\xa9"},
            // Where there is nothing to a pattern, none is compiled: this would be too large.
            {{longEntry.constData()}, '$' + longEntry.chopped(2), "x"},
        };
        // clang-format on
        for (const auto& row : rows) {
            QCOMPARE(expandedIn(row.environment, row.path), QString::fromUtf8(row.expected));
        }
        // Each variable doubles the text, by name and by pattern.
        for (const char* entry : {"A=$A/$A/", "A.?=$A/$A/"}) {
            const auto size = expandedIn(std::vector<const char*>(100, entry), "$A/").size();
            QVERIFY(size > 65536 && size < 4 * 65536);
        }
        QStringList expandable = list("100% a$b ~x a~b");
        expandable.removeIf([](const QString& path) { return !containsEnvVarOrTilde(path); });
        QCOMPARE(expandable, list("100% a$b ~x"));
        char** const previous = environ;
        environ = nullptr;
        const QString expanded = expandVars(text("$HOME"));
        environ = previous;
        QCOMPARE(expanded, text("$HOME"));
    }

    void splits()
    {
        // clang-format off
        const char* const rows[][2] = {
            {" \n ", ""}, {"a  b\nc\td", "<a><b><c\td>"},
            // Quotes, also those that are never closed.
            {"a''b '' \"\" \"c d\"'e f'g", "<ab><><><c de fg>"}, {"'ab c", "<ab c>"}, {"\"a", "<a>"},
            // A backslash escapes in double quotes, is itself in single ones, and else dropped.
            {"\"a\\\"b\\c\\\\d\"", "<a\"bc\\d>"}, {"'a\\b'", "<a\\b>"}, {"a\\ b\\\\\\", "<a><b>"},
            {"\\'a b'", "<a b>"}, {"x \"a\\", "<x><a>"}, {"\\", ""},
        };
        // clang-format on
        for (const auto& [commandLine, expected] : rows) {
            QCOMPARE(bracketed(parseArgs(text(commandLine))), text(expected));
        }
        setSetting("PELK_ALLOW_NEWLINE_IN_ARGS", "yes");
        QCOMPARE(bracketed(parseArgs(text("a\nb c"))), text("<a\nb><c>"));

        QByteArray parts;
        for (const char* joined : {"a, ,, b,c, ", ""}) {
            char** const vector = m_strsplit(joined, ", ");
            for (char** entry = vector; *entry; ++entry) {
                parts += QByteArray("<") + *entry + '>';
            }
            m_strfreev(vector);
        }
        QCOMPARE(parts, "<a><,><b,c><><>");
        m_strfreev(m_strsplit(m_strdup(nullptr), ","));
    }

    void versions()
    {
        const char* const rows[][5] = {
            {"1.2.3", "4.5.6", nullptr, nullptr, "<1.2.3><4.5.6><1.2$7>"},
            {"", "", nullptr, nullptr, "<<unknown>><<unknown>><<unknown>$7>"},
            {"1.2.3", "4.5.6", "5.0.2", nullptr, "<5.0.2><5.0.2><5.0$7>"},
            {"1.2.3", "4.5.6", "5.0.2", "", "<5.0.2><><5.0$7>"},
            {"1.2.3", "4.5.6", "", nullptr, "<><><$7>"},
        };
        for (const auto& [version, release, setting, releaseSetting, expected] : rows) {
            ZORV_VERSION = version;
            ZORV_RELEASE_VERSION = release;
            setSetting("ZORV_VERSION", setting);
            setSetting("PELK_RELEASE_VERSION", releaseSetting);
            QCOMPARE(bracketed({sc_version(), sc_releaseVersion(), sc_versionForCompatibility(7)}),
                     text(expected));
        }
        // clang-format off
        const char* const keys[][2] = {
            {"4.2.1", "4.2$7"}, {"4.2.0", "4.2.0$7"}, {"4.2", "4.2$7"}, {"4.2.release", "4.2.release$7"},
            {"4.2.1-rc1-preview12-x", "4.2preview12$7"}, {"4.2.1-Preview3", "4.2$7"},
            {"4.2.1-preview", "4.2$7"}, {"4.2.1.20190", "4.2$7"}, {"4.2.1.5", "4.2.1.5$7"},
            {"4.2019", "4.2019$7"}, {"4..1", "4.$7"}, {"-", "$7"},
        };
        // clang-format on
        for (const auto& [version, expected] : keys) {
            QCOMPARE(sc_versionForCompatibility_private(text(version), 7), text(expected));
        }
    }

    void layouts()
    {
        TalvoraGlobals* globals = TalvoraGlobals::instance();
        const auto paths = [&] {
            return bracketed({globals->installPath(), globals->binPath(), globals->libPath(),
                              globals->libexecPath(), globals->resourcesPath(),
                              globals->iconsPath(), globals->metricsPath()});
        };
        globals->setLocationsAsFlatPath(text("/f"));
        QCOMPARE(paths(), text("</f></f></f></f></f></f>null"));
        globals->setLocationsFromInstallPath(text("/no/x"));
        QCOMPARE(paths(), text("</no/x></no/x/bin></no/x/lib></no/x/libexec></no/x/resource>"
                               "</no/x/icons></no/x/pelk/metrics>"));
        // The metrics stay where they are.
        globals->setLocationsAsFlatPath(text("/f"));
        QCOMPARE(paths(), text("</f></f></f></f></f></f></no/x/pelk/metrics>"));
        globals->initPaths();
        QCOMPARE(globals->installPath(), QCoreApplication::applicationDirPath() + text("/.."));
        QCOMPARE(globals->localConfigDir() + globals->bluegeneTmpDir(), text(".talvora/tmp"));
        QVERIFY(*HGID);
        QCOMPARE(QFile(text(":/qt/etc/qt.conf")).size(), 236);
    }
};

QTEST_GUILESS_MAIN(TextsTest)
#include "tst_texts.moc"
