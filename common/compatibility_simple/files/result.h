#pragma once

#include <QString>

#include <cerrno>
#include <optional>
#include <utility>

/// Why an operation on a file failed.
struct FileError
{
    int code;       ///< an errno value
    QString reason; ///< more precise than the system's text for the code, or null

    /// The error of the last system call, from errno.
    static FileError last() { return {errno, QString()}; }
    /// The reason, or the system's text for the code when there is no reason.
    QString text() const { return reason.isNull() ? qt_error_string(code) : reason; }
};

/// The value of an operation, or the error when there is none.
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

    /// The error. Only meaningful when there is no value.
    const FileError& error() const { return mError; }

private:
    FileError mError = {};
};
