// The walk over a command line that every program of the suite makes.

#pragma once

#include <QString>
#include <QStringList>

/// The base of all command-line parsers. A subclass recognises its own options,
/// one at a time, in parseOption(); the base walks the list, handles the help
/// words and "--", and reports what is wrong in one warning.
class Options
{
public:
    /// What a hook says of an argument.
    enum ParseResult {
        Ok = 0,           ///< taken, with its value if it has one
        Unrecognised = 1, ///< no option of this parser: the options end here
        Invalid = 2,      ///< the option's value is unacceptable
        Missing = 3,      ///< the option needs a value and none follows
        Help = 4,         ///< help was asked for
    };

    Options();
    virtual ~Options();

    /// Parses a command line, whose first element is the program's name and
    /// whose options come first. False when it is rejected; a warning then says
    /// why. In simple-arguments mode the help words "-h", "--help" and "-?" print
    /// the help and end the process with status 0, and "--" ends the options.
    [[nodiscard]] virtual bool parse(const QStringList& arguments);

    /// Simple-arguments mode (the default) accepts short and single-dash
    /// spellings and the help words; otherwise there are only the long,
    /// prefixed ones, which are nobody else's.
    bool isSimpleArguments() const { return mSimple; }
    void setSimpleArguments(bool simple) { mSimple = simple; }

protected:
    /// Recognises one option. `it` points at it; an option with a value
    /// advances it by one, onto the value, and returns Missing when that is
    /// `end`.
    virtual ParseResult parseOption(const QString& option, QStringList::const_iterator& it,
                                    QStringList::const_iterator end);
    /// Takes the arguments that are no options. The base takes none.
    virtual ParseResult parseRemainingArguments(const QStringList& rest);
    /// Prints the help to standard output. The base has none.
    virtual void printHelp();

    void missingArgument(const QString& option);
    void invalidArgument(const QString& option, const QString& value);
    void unrecognisedArgument(const QString& argument);

private:
    void report(ParseResult result, const QString& option, const QString& value);
    bool isHelpWord(const QString& argument) const;

    bool mSimple;
};
