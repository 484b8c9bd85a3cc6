#pragma once

#include <csignal>

// Before main, the launcher blocks the signals that it passes on, so that they stay pending
// until handlePassedSignals() and do not end it.

/// The signal mask that the launcher was started with and that the helper inherits.
sigset_t signalMaskOfStart();

/// Stores the signal mask of the start in the variable TALVORA_OLD_SIGNAL_MASK, as 16
/// hexadecimal digits, for the new copy that fixStackLimit() executes.
void rememberSignalMask();

/// Sets signalMaskOfStart() from the variable, and removes the variable. Ignores a value that
/// is not a mask. Does nothing without the variable. Call it after fixStackLimit().
void recallSignalMask();
