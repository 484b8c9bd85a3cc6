// The live view of a session.

#pragma once

struct Request;

/// Shows the restart files of the session, and the launchers of this installation with
/// their helpers, until a signal ends the program. A terminal shows a screen that is updated
/// each second, any other output gets a line for each change. Returns an exit status if
/// there is no session or the output cannot be written.
int watch(const Request& request);
