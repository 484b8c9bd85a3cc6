// The identifiers of the build.

#pragma once

/// The changeset that the program was built from: the first twelve hexadecimal
/// digits of its id, all zero when it was built outside a checkout.
extern const char* HGID;
/// The release tag of the build: the newest tag that the changeset descends
/// from, or "unknown".
extern const char* HGBRANCH;
/// The version number, three numbers separated by dots.
extern const char* ZORV_VERSION;
/// The version number of the release; the same text.
extern const char* ZORV_RELEASE_VERSION;
