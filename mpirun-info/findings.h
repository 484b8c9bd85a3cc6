// The findings of the report.

#pragma once

#include <QByteArray>

enum class Severity {
    Error,   ///< a launch would fail
    Warning, ///< something may not be as intended
    Unknown, ///< it is not known whether a launch would fail
};

enum class Finding {
#define FINDING(name, code, severity, meaning, remedy) name,
#include "mpirun-info/findings.def"
#undef FINDING
};

struct FindingText
{
    const char* code;
    Severity severity;
    const char* meaning;
    const char* remedy;
};

/// The row of a Finding.
const FindingText& findingAt(int finding);
const char* nameOf(Severity severity);

/// The list of all findings: a text for people, or a JSON array.
QByteArray allFindings(bool json);
