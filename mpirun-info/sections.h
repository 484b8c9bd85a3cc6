// The sections of the report, and its other forms.

#pragma once

#include "mpirun-info/report.h"
#include "mpirun-info/request.h"

#include <QString>

// Each function adds its facts to the current section, and its findings. Call those after
// describeStart() in a probe: they may wait for servers without a limit.

void describeVersion(Report* report, const Request& request);
/// Whether a helper can be started with the available descriptors and processes, the
/// arguments and the stack limit. Call it before anything else opens files.
void describeStart(Report* report, const Request& request);
void describeProcess(Report* report, const Request& request);
void describeSystem(Report* report, const Request& request);
void describeLibraries(Report* report, const Request& request);
void describeContainer(Report* report, const Request& request);
void describeBatch(Report* report, const Request& request);
/// Asks each MPI launcher on PATH for its version.
void describeMpi(Report* report, const Request& request);
/// Includes the helper and everything that it needs to start.
void describeInstallation(Report* report, const Request& request);
/// The directories that a launch uses, and their file systems.
void describeDirectories(Report* report, const Request& request);
/// The interfaces of this host, and look-ups of its names and the front end's.
void describeHost(Report* report, const Request& request);
/// Every setting of the suite, and the variable that gives it.
void describeSettings(Report* report, const Request& request);
void describeLog(Report* report, const Request& request);
/// How the launcher reads its command line.
void describeCommandLine(Report* report, const Request& request);
/// The fields of the session and their sources, the session files, and the restart files.
void describeSession(Report* report, const Request& request);

/// The name of the variable that gives a setting, null when none does.
QString winningVariable(const char* bareName);

/// The word of the list that is nearest to `word`, ignoring case. Null if none is within
/// `mostSlips` mistakes: a missing, additional, wrong or swapped letter each.
QString nearestSpelling(const QString& word, const QStringList& known, int mostSlips = 2);

/// Shows the restart files of the session, and the launchers of this installation with
/// their helpers, until a signal ends the program. A terminal shows a screen that is updated
/// each second, any other output gets a line for each change. Returns an exit status if
/// there is no session or the output cannot be written.
int watch(const Request& request);
