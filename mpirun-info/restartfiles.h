// The files with which the launcher and the front end communicate.

#pragma once

#include <QString>

class BackendUserData;
class Report;

/// The file at a path, if there is one.
struct RestartFile
{
    explicit RestartFile(const QString& filePath);

    /// Whether the launcher cannot write to the file or refuses to, see files/overwrite.h.
    bool isRefused() const;

    QString path;
    bool exists = false;
    /// Seconds since its last change, and its owner's user id; -1 when it does not exist.
    qint64 age = -1;
    qint64 owner = -1;
    /// Whether a file of its type can be overwritten: no directory, FIFO or socket.
    bool isOverwritable = false;
};

/// The files of a session.
struct RestartFiles
{
    explicit RestartFiles(const BackendUserData& session);

    RestartFile marker;
    RestartFile request;
    RestartFile hold;
};

/// A duration as text, such as "5 s", "12 min" and "3 days".
QString ageText(qint64 seconds);

/// Adds the files, and what the next launch does with them.
void describeRestartFiles(Report* report, const BackendUserData& session);

/// The errno that keeps this user from creating a file in a directory; 0 for none.
int errorOfNewFileIn(const QString& directory);
