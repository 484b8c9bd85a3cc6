// Every setting of the suite, and the variable that gives it.

#pragma once

#include <QString>

class Report;

/// The name of the variable that gives a setting, null when none does.
QString winningVariable(const char* bareName);

/// Adds every setting and every plain variable that is read, and warns of
/// settings that two variables give differently. Hides the session cookie.
void describeSettings(Report* report);
