#pragma once

#include <QString>
#include <QStringList>

/// The base class of command-line parsers. It goes through the arguments, handles the help
/// words and "--", and reports the first error in one warning. A subclass parses its options
/// one by one in parseOption().
class Options
{
public:
    /// The result of parsing an argument.
    enum ParseResult {
        Ok = 0,           ///< parsed, with its value if it has one
        Unrecognised = 1, ///< no option of this parser: the options end here
        Invalid = 2,      ///< the value of the option is invalid
        Missing = 3,      ///< the value of the option is missing
        Help = 4,         ///< help was requested
    };

    virtual ~Options() = default;

    /// Parses a command line: the program's name, the options, the other arguments. Returns
    /// false, after a warning with the cause, when it is rejected. In simple-arguments mode,
    /// "-h", "--help" and "-?" print the help and end the process with status 0, and "--"
    /// ends the options.
    [[nodiscard]] virtual bool parse(const QStringList& arguments);

    /// Whether simple-arguments mode is on, as it is by default. The mode also accepts short
    /// and single-dash spellings and the help words. Without it, only the long spellings with
    /// the suite's prefix count, which no other program uses.
    bool isSimpleArguments() const { return mSimple; }
    void setSimpleArguments(bool simple) { mSimple = simple; }

protected:
    /// Parses one option. `it` points at it. For an option with a value, advances `it` by one,
    /// to the value, and returns Missing when that is `end`.
    virtual ParseResult parseOption(const QString& option, QStringList::const_iterator& it,
                                    QStringList::const_iterator end);
    /// Parses the arguments after the options. The base class accepts none.
    virtual ParseResult parseRemainingArguments(const QStringList& rest);
    /// Prints the help to standard output. The base class prints nothing.
    virtual void printHelp();

    void missingArgument(const QString& option);
    void invalidArgument(const QString& option, const QString& value);
    void unrecognisedArgument(const QString& argument);

private:
    void report(ParseResult result, const QString& option, const QString& value);

    bool mSimple = true;
};
