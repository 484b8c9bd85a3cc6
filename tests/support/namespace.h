// A host of a test's own, in namespaces: its name, its interfaces, its files.

#pragma once

#include <QByteArray>
#include <QString>

namespace Namespace {

/// The exit status of a test program that needs namespaces where there are
/// none; CTest shows it as skipped.
constexpr int Skipped = 77;

/// Puts the process into namespaces of its own: of users (in which it is root),
/// of interfaces (there is only "lo"), of mounts and of the host's name. Its root
/// directory is then one in which files may be made that nobody else sees; the
/// directories in it are those of the machine. To be called first in main,
/// before there are threads. False, with a word on standard error, where the
/// machine forbids it.
bool enter();

/// Makes an existing directory one that the test may change, and nobody else sees
/// it: it starts with links to what was there, and with the directories that were
/// empty. A directory that was not empty is still the machine's: make nothing in it.
void makeWritable(const QString& directory);

/// Makes a file in a directory that the test may change, in the place of what
/// may be there; makes missing directories too.
void writeFile(const QString& path, const QByteArray& content, int mode = 0644);

/// Runs a command of the shell; aborts when it fails.
void run(const QString& command);

/// Gives the host its name, and the resolver these lines as its only source. The
/// order of the answers is the resolver's (RFC 6724), not that of the lines.
void setHosts(const QByteArray& hostName, const QByteArray& hostsFile);

} // namespace Namespace
