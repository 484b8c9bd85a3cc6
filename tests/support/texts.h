// Short forms for texts in tests; the texts of lists, of files and of messages.

#pragma once

#include <QFile>
#include <QStringList>

inline QString text(const char* latin1)
{
    return QString::fromLatin1(latin1);
}

/// The words of a text.
inline QStringList list(const char* words)
{
    return text(words).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

/// Each text of a list in angle brackets; one that is null shows as "null".
inline QString bracketed(const QStringList& texts)
{
    QString result;
    for (const QString& text : texts) {
        result +=
            text.isNull() ? QStringLiteral("null") : QLatin1Char('<') + text + QLatin1Char('>');
    }
    return result;
}

/// Makes a file or replaces its content; false when that fails.
[[nodiscard]] inline bool writeFile(const QString& fileName, const QByteArray& content)
{
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

/// Takes the messages that are logged while it lives, of which there is one at
/// a time.
class MessageCollector
{
public:
    MessageCollector()
    {
        sTexts.clear();
        mPrevious = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& text) { sTexts += text; });
    }
    ~MessageCollector() { qInstallMessageHandler(mPrevious); }
    QString texts() const { return bracketed(sTexts); }

private:
    static inline QStringList sTexts;
    QtMessageHandler mPrevious;
};
