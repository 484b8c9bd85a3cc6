#include "common/mlib.h"

#include "common/env/zorvenv.h"

#include <QByteArray>

#include <cstdlib>
#include <cstring>
#include <optional>

namespace {

// Splits a text in one pass.
class ArgumentScanner
{
public:
    ArgumentScanner(const QString& text, bool newlineSeparates)
        : mText(text)
        , mNewlineSeparates(newlineSeparates)
    {
    }

    QStringList scan()
    {
        while (mPosition < mText.size()) {
            const QChar c = mText.at(mPosition++);
            if (c == QLatin1Char(' ') || (c == QLatin1Char('\n') && mNewlineSeparates)) {
                finishArgument();
            } else if (c == QLatin1Char('\'')) {
                takeSingleQuoted();
            } else if (c == QLatin1Char('"')) {
                takeDoubleQuoted();
            } else if (c != QLatin1Char('\\')) {
                add(c);
            }
        }
        finishArgument();
        return mArguments;
    }

private:
    QString& argument()
    {
        if (!mArgument) {
            mArgument.emplace(QLatin1String(""));
        }
        return *mArgument;
    }

    void add(QChar c) { argument() += c; }

    void takeSingleQuoted()
    {
        const qsizetype close = mText.indexOf(QLatin1Char('\''), mPosition);
        const qsizetype end = close == -1 ? mText.size() : close;
        argument() += mText.mid(mPosition, end - mPosition);
        mPosition = end + 1;
    }

    void takeDoubleQuoted()
    {
        argument();
        while (mPosition < mText.size()) {
            QChar c = mText.at(mPosition++);
            if (c == QLatin1Char('"')) {
                return;
            }
            if (c == QLatin1Char('\\')) {
                if (mPosition == mText.size()) {
                    return;
                }
                c = mText.at(mPosition++);
            }
            add(c);
        }
    }

    void finishArgument()
    {
        if (mArgument) {
            mArguments += *mArgument;
            mArgument.reset();
        }
    }

    const QString& mText;
    const bool mNewlineSeparates;
    qsizetype mPosition = 0;
    std::optional<QString> mArgument;
    QStringList mArguments;
};

} // namespace

QStringList parseArgs(const QString& text)
{
    return ArgumentScanner(text, !envFlag("ALLOW_NEWLINE_IN_ARGS")).scan();
}

char** m_strsplit(const char* string, const char* separator)
{
    if (!string) {
        return nullptr;
    }
    const QStringList parts =
        *string ? QString::fromLocal8Bit(string).split(QString::fromLocal8Bit(separator))
                : QStringList(QString());
    auto** vector =
        static_cast<char**>(calloc(static_cast<size_t>(parts.size()) + 1, sizeof(char*)));
    Q_CHECK_PTR(vector);
    for (qsizetype i = 0; i < parts.size(); ++i) {
        vector[i] = m_strdup(parts.at(i).toLocal8Bit().constData());
    }
    return vector;
}

char* m_strdup(const char* string)
{
    return string ? strdup(string) : nullptr;
}

void m_strfreev(char** vector)
{
    if (!vector) {
        return;
    }
    for (char** entry = vector; *entry; ++entry) {
        free(*entry);
    }
    free(vector);
}
