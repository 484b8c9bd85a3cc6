// Interfaces, mounts and a name that nobody else sees.

#pragma once

namespace Namespace {

/// The exit status of a test program that needs namespaces where there are
/// none; CTest shows it as skipped.
constexpr int Skipped = 77;

/// Puts the process into namespaces of its own: of users (in which it is root),
/// of interfaces (there is only "lo"), of mounts and of the host's name. Its files
/// are still the machine's. Then runs a script of the shell there; aborts when it fails.
/// To be called first in main, before there are threads.
/// False, with a word on standard error, where the machine forbids it.
bool enter(const char* script);

} // namespace Namespace
