// The sections of the report.

#pragma once

class Report;
struct Request;

// Each function adds a section and what is wrong with it. Those that ask servers may take
// as long as these let them, and are run in a probe.

void describeVersion(Report* report, const Request& request);
/// Whether a helper could be started with the descriptors, processes, arguments and stack
/// limit that there are. Before anything else opens files.
void describeStart(Report* report, const Request& request);
void describeProcess(Report* report, const Request& request);
void describeSystem(Report* report, const Request& request);
void describeLibraries(Report* report, const Request& request);
void describeContainer(Report* report, const Request& request);
void describeBatch(Report* report, const Request& request);
/// Asks each MPI launcher on PATH for its version.
void describeMpi(Report* report, const Request& request);
/// Also looks at the helper, and at what it needs to be started.
void describeInstallation(Report* report, const Request& request);
/// The file systems of all directories that the launch touches.
void describeDirectories(Report* report, const Request& request);
/// The names of this host and of the front end, looked up.
void describeHost(Report* report, const Request& request);
/// Every setting of the suite, and the variable that gives it.
void describeSettings(Report* report, const Request& request);
void describeLog(Report* report, const Request& request);
/// What the launcher makes of its command line.
void describeCommandLine(Report* report, const Request& request);
/// The session's fields and where they come from, the files that were looked for, and the
/// files that the launcher and the front end leave for each other.
void describeSession(Report* report, const Request& request);
