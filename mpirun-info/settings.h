// What the sections of the report ask of the settings.

#pragma once

#include <QString>

/// The name of the variable that gives a setting, null when none does.
QString winningVariable(const char* bareName);
