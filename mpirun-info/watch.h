// A session as it runs.

#pragma once

struct Request;

/// Shows the restart files of the session, and the launchers of this installation with
/// their helpers, until a signal ends the program: on a terminal as a screen that is drawn
/// anew each second, otherwise as a line for each change. Returns an exit status when there
/// is no session, or nobody reads the output.
int watch(const Request& request);
