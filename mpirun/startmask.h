#pragma once

#include <csignal>

// Before main, the launcher blocks the signals that it passes on: they wait for
// handlePassedSignals() instead of ending it.

/// The signals that were blocked when the launcher was started, and that the helper is to
/// have blocked.
sigset_t signalMaskOfStart();

/// Stores the mask of the start for the fresh copy that fixStackLimit() makes: in the
/// variable TALVORA_OLD_SIGNAL_MASK, as 16 hexadecimal digits.
void rememberSignalMask();

/// Makes the mask that the variable holds the mask of the start, and removes the variable.
/// A value that is no mask is ignored. Does nothing without the variable.
void recallSignalMask();
