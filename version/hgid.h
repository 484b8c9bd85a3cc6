// The identifiers of the build.

#pragma once

/// The changeset that the program was built from: the first twelve hexadecimal digits of
/// the commit, or twelve zeros for a build outside of a checkout.
extern const char* HGID;
/// The newest tag in the history of the changeset, or "unknown".
extern const char* HGBRANCH;
/// The version number: three numbers separated by dots.
extern const char* ZORV_VERSION;
/// The version number of the release, the same as ZORV_VERSION.
extern const char* ZORV_RELEASE_VERSION;
