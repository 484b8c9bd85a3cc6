#pragma once

#include <QString>

#include <cerrno>
#include <optional>
#include <utility>

/// Why an operation on a file failed.
struct FileError
{
    int code;     ///< an errno value
    QString text; ///< the system's text for it, or a more exact one

    static FileError last() { return {errno, qt_error_string(errno)}; }
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
