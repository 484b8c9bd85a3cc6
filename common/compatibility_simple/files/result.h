#pragma once

#include <QString>

#include <cerrno>
#include <optional>
#include <utility>

/// Why an operation on a file failed.
struct FileError
{
    int code;       ///< an errno value
    QString reason; ///< more exact than the system's text for the code; null when there is none

    static FileError last() { return {errno, QString()}; }
    /// The reason, or else the system's text for the code.
    QString text() const { return reason.isNull() ? qt_error_string(code) : reason; }
};

/// The value of an operation, or why there is none.
template <typename T> class [[nodiscard]] Result : public std::optional<T>
{
public:
    Result(T&& value)
        : std::optional<T>(std::move(value))
    {
    }
    Result(FileError&& error)
        : mError(std::move(error))
    {
    }

    /// Why there is no value.
    const FileError& error() const { return mError; }

private:
    FileError mError = {};
};
