// Expansion of tildes and variable references.

#include "common/compatibility_simple/pathexpansion.h"

#include <QDir>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

#include <cstdint>
#include <dlfcn.h>
#include <pwd.h>
#include <unistd.h>
#include <vector>

static int compileCount = 0;

// Qt's compilations are counted: the linker puts the counter before a static
// library's function, the loader before that of a shared one.
#ifdef QT_STATIC
extern "C" void* __real_pcre2_compile_16(const char16_t* pattern, size_t length, uint32_t options,
                                         int* error, size_t* offset, void* context);
#define pcre2_compile_16 __wrap_pcre2_compile_16
#endif

extern "C" void* pcre2_compile_16(const char16_t* pattern, size_t length, uint32_t options,
                                  int* error, size_t* offset, void* context)
{
#ifdef QT_STATIC
    constexpr auto original = __real_pcre2_compile_16;
#else
    using Compile = void*(const char16_t*, size_t, uint32_t, int*, size_t*, void*);
    static auto* const original = reinterpret_cast<Compile*>(dlsym(RTLD_NEXT, "pcre2_compile_16"));
#endif
    ++compileCount;
    return original(pattern, length, options, error, offset, context);
}

namespace {

// An environment of our own, in our own order; entries need not hold a '='.
class Environment
{
public:
    explicit Environment(const QByteArrayList& entries)
        : mEntries(entries)
        , mPrevious(environ)
    {
        for (QByteArray& entry : mEntries) {
            mPointers.push_back(entry.data());
        }
        mPointers.push_back(nullptr);
        environ = mPointers.data();
    }
    ~Environment() { environ = mPrevious; }

private:
    QByteArrayList mEntries;
    std::vector<char*> mPointers;
    char** mPrevious;
};

// What the expansion means, without a thought for speed.
QString expandedOneByOne(QString text, const QByteArrayList& environment)
{
    const QByteArrayList entries = text.contains(QLatin1Char('$')) ? environment : QByteArrayList();
    for (const QByteArray& entry : entries) {
        const qsizetype equals = entry.indexOf('=');
        if (equals == -1) {
            continue;
        }
        const QString name = QString::fromLocal8Bit(entry.left(equals));
        const QRegularExpression pattern(QStringLiteral("(\\$%1\\b|\\$\\{%1\\})").arg(name),
                                         QRegularExpression::UseUnicodePropertiesOption);
        if (pattern.isValid()) {
            // A stand-in for the value: replace() gives a backslash a meaning.
            const QString standIn(QChar(0xe000));
            text.replace(pattern, standIn);
            text.replace(standIn, QString::fromLocal8Bit(entry.mid(equals + 1)));
        }
    }
    return text.trimmed();
}

} // namespace

class PathExpansionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void recognisesReferences();
    void expandsTildes_data();
    void expandsTildes();
    void expandsVariables_data();
    void expandsVariables();
    void meansTheSameAsOneByOne();
    void largeEnvironment();
    void expansionThatExplodes();
    void noEnvironmentAtAll();
};

void PathExpansionTest::recognisesReferences()
{
    for (const char* text : {"100%", "a$b", "~x"}) {
        QVERIFY(containsEnvVarOrTilde(QString::fromLatin1(text)));
    }
    QVERIFY(!containsEnvVarOrTilde(QStringLiteral("a~b")));
}

void PathExpansionTest::expandsTildes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    const QString home = QDir::homePath();
    const QString root = QString::fromLocal8Bit(getpwnam("root")->pw_dir);
    const auto l = [](const char* text) { return QString::fromLatin1(text); };
    QTest::newRow("alone") << l("~") << home;
    QTest::newRow("with a path") << l("~/x") << home + l("/x");
    QTest::newRow("before a blank") << l("~ x") << home + l(" x");
    QTest::newRow("of a user") << l("~root") << root;
    QTest::newRow("of a user, with a path") << l("~root/x") << root + l("/x");
    QTest::newRow("of a user, before a blank") << l("~root x/y") << root + l(" x/y");
    QTest::newRow("of nobody known") << l("~no-such-user/x") << l("~no-such-user/x");
    QTest::newRow("inside") << l("a~b") << l("a~b");
}

void PathExpansionTest::expandsTildes()
{
    QFETCH(QString, text);
    QTEST(tildeExpansion(text), "expected");
}

void PathExpansionTest::expandsVariables_data()
{
    QTest::addColumn<QByteArrayList>("environment");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char* name, const QByteArrayList& environment, const char* text,
                        const char* expected) {
        QTest::newRow(name) << environment << QString::fromUtf8(text)
                            << QString::fromUtf8(expected);
    };
    const QByteArrayList h{"H=/h"};
    row("braced, trimmed", h, "  ${H}/x \t", "/h/x");
    row("trimmed without a reference", h, " a ", "a");
    row("word ends at a slash", h, "$H/$H", "/h//h");
    row("longer names are others", h, "$HX $H_ $H1 ${HX}", "$HX $H_ $H1 ${HX}");
    row("letters of all scripts are word characters", h, "$H\u00e9 $H\u00e4x",
        "$H\u00e9 $H\u00e4x");
    row("not set", h, "$NONE/x", "$NONE/x");
    row("a value with backslashes", {"H=\\1\\\\$&"}, "$H", "\\1\\\\$&");
    row("a later variable expands a value", {"A=$B", "B=b"}, "$A", "b");
    row("an earlier one does not", {"B=b", "A=$B"}, "$A", "$B");
    row("the first of two of a name", {"A=1", "A=2"}, "$A", "1");
    row("no equals sign, no variable", {"A", "B=b"}, "$A $B", "$A b");
    row("a name that is no pattern", {"A(=x", "B=b"}, "$A( $B", "$A( b");
    row("a name that is a pattern", {"A.C=x"}, "$ABC $A.C ${AxC}", "x x x");
    row("an exported shell function", {"BASH_FUNC_f%%=() { :; }"}, "${BASH_FUNC_f%%}", "() { :; }");
    row("a boundary after no word character", {"f%=x"}, "$f% $f%a", "$f% xa");
    row("tilde first", {"HOME=/home"}, "~/$HOME", "/home//home");
}

void PathExpansionTest::expandsVariables()
{
    QFETCH(QByteArrayList, environment);
    QFETCH(QString, text);
    const Environment scope(environment);
    QTEST(expandVars(text), "expected");
}

void PathExpansionTest::meansTheSameAsOneByOne()
{
    const char* const pieces[] = {"$",
                                  "{",
                                  "}",
                                  "A",
                                  "AB",
                                  "_",
                                  "%",
                                  ".",
                                  "*",
                                  "\\",
                                  "\xc3\xa9",
                                  "(",
                                  ")",
                                  " ",
                                  "1",
                                  "|",
                                  "\xf0\x9d\x94\xb8",
                                  "$A",
                                  "${AB}"};
    QRandomGenerator random(20);
    const auto text = [&](int longest) {
        QByteArray bytes;
        for (int i = random.bounded(longest) + 1; i > 0; --i) {
            bytes += pieces[random.bounded(int(std::size(pieces)))];
        }
        return bytes;
    };
    for (int round = 0; round < 3000; ++round) {
        QByteArrayList environment;
        for (int i = 0; i < 6; ++i) {
            environment += text(3) + '=' + text(3);
        }
        // No tilde at the front: that is another rule.
        const QString input = QStringLiteral("x") + QString::fromUtf8(text(12));
        const QString expected = expandedOneByOne(input, environment);
        const Environment scope(environment);
        QVERIFY2(
            expandVars(input) == expected,
            qPrintable(input + QLatin1String(" in ") + QString::fromUtf8(environment.join(' '))));
    }
}

void PathExpansionTest::largeEnvironment()
{
    QByteArrayList environment;
    for (int i = 0; i < 5000; ++i) {
        environment += "VARIABLE_" + QByteArray::number(i) + "=value" + QByteArray::number(i);
    }
    environment += "VARIABLE_[ab]=pattern";
    const Environment scope(environment);
    compileCount = 0;
    QCOMPARE(expandVars(QStringLiteral("$VARIABLE_4999/${VARIABLE_0}/$VARIABLE_5000")),
             QStringLiteral("value4999/value0/$VARIABLE_5000"));
    QCOMPARE(compileCount, 1);
}

// Each variable doubles the text, by name and by pattern.
void PathExpansionTest::expansionThatExplodes()
{
    for (const char* name : {"A", "A.?"}) {
        QByteArrayList environment;
        for (int i = 0; i < 100; ++i) {
            environment += QByteArray(name) + "=$A/$A/";
        }
        const Environment scope(environment);
        const QString expanded = expandVars(QStringLiteral("$A/"));
        QVERIFY(expanded.size() > 65536);
        QVERIFY(expanded.size() < 4 * 65536);
    }
}

void PathExpansionTest::noEnvironmentAtAll()
{
    char** const previous = environ;
    environ = nullptr;
    const QString expanded = expandVars(QStringLiteral(" $HOME"));
    environ = previous;
    QCOMPARE(expanded, QStringLiteral("$HOME"));
}

QTEST_APPLESS_MAIN(PathExpansionTest)
#include "tst_pathexpansion.moc"
