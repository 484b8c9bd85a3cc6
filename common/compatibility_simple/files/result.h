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
template <typename T> class [[nodiscard]] Result
{
public:
    Result(T&& value)
        : mValue(std::move(value))
    {
    }
    Result(FileError&& error)
        : mError(std::move(error))
    {
    }

    /// Whether there is a value.
    explicit operator bool() const { return mValue.has_value(); }
    /// The value. There has to be one.
    T& operator*() { return *mValue; }
    const T& operator*() const { return *mValue; }
    T* operator->() { return &*mValue; }
    const T* operator->() const { return &*mValue; }
    /// Why there is no value.
    const FileError& error() const { return mError; }

private:
    std::optional<T> mValue;
    FileError mError = {};
};
