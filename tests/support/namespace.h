// Interfaces, mounts and a name that nobody else sees.

#pragma once

#include <QString>

namespace Namespace {

/// The exit status of a test program that needs namespaces where there are
/// none; CTest shows it as skipped.
constexpr int Skipped = 77;

/// Puts the process into namespaces of its own: of users (in which it is root),
/// of interfaces (there is only "lo"), of mounts and of the host's name. Its files
/// are still the machine's. To be called first in main, before there are threads.
/// False, with a word on standard error, where the machine forbids it.
bool enter();

/// Runs a command of the shell; aborts when it fails.
void run(const QString& command);

} // namespace Namespace
