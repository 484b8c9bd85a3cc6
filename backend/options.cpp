#include "backend/options.h"

#include <QObject>

#include <cstdlib>

namespace {

void warn(const QString& text)
{
    qWarning("%s", text.toLocal8Bit().constData());
}

bool isHelpWord(const QString& argument)
{
    return argument == QLatin1String("-h") || argument == QLatin1String("--help") ||
           argument == QLatin1String("-?");
}

} // namespace

bool Options::parse(const QStringList& arguments)
{
    const QStringList words = arguments.mid(1);
    const QStringList::const_iterator end = words.constEnd();
    QStringList::const_iterator it = words.constBegin();
    while (it != end) {
        const QString& argument = *it;
        if (mSimple && argument == QLatin1String("--")) {
            ++it;
            break;
        }
        if (mSimple && isHelpWord(argument)) {
            printHelp();
            exit(0);
        }
        const ParseResult result = parseOption(argument, it, end);
        if (result == Unrecognised) {
            break;
        }
        if (result != Ok) {
            report(result, argument, it == end ? QString() : *it);
            return false;
        }
        ++it;
    }
    const QStringList rest(it, end);
    const ParseResult result = parseRemainingArguments(rest);
    report(result, rest.value(0), QString());
    return result == Ok;
}

Options::ParseResult Options::parseOption(const QString&, QStringList::const_iterator&,
                                          QStringList::const_iterator)
{
    return Unrecognised;
}

Options::ParseResult Options::parseRemainingArguments(const QStringList& rest)
{
    return rest.isEmpty() ? Ok : Unrecognised;
}

void Options::printHelp()
{
}

void Options::report(ParseResult result, const QString& option, const QString& value)
{
    switch (result) {
    case Invalid:
        invalidArgument(option, value);
        break;
    case Missing:
        missingArgument(option);
        break;
    case Unrecognised:
        unrecognisedArgument(option);
        break;
    case Ok:
    case Help:
        break;
    }
}

void Options::missingArgument(const QString& option)
{
    warn(QObject::tr("option '%1' requires an argument").arg(option));
}

void Options::invalidArgument(const QString& option, const QString& value)
{
    warn(QObject::tr("invalid %1 argument '%2'").arg(option, value));
}

void Options::unrecognisedArgument(const QString& argument)
{
    warn(QObject::tr("unrecognised argument '%1'").arg(argument));
}
