// Expansion of what users write in paths: a tilde and variable references.

#pragma once

#include <QString>

/// Whether expandVars() may have something to do, on any platform: the text
/// holds a '%' or a '$', or begins with '~'.
bool containsEnvVarOrTilde(const QString& text);

/// Replaces a leading "~" by the user's home directory and a leading "~name" by
/// that of the named user, up to the first slash or blank. The text comes back
/// unchanged when there is no such user.
QString tildeExpansion(const QString& text);

/// Expands a leading tilde, then the references $NAME and ${NAME} to variables
/// of the environment, and removes white space at both ends. References to
/// other variables stay. The variables are applied one after another, in the
/// environment's order, so a reference that a value brings in is expanded only
/// by a later variable. Where that would make the text longer than 16777216 characters,
/// this variable and those after it are not expanded.
QString expandVars(const QString& text);
