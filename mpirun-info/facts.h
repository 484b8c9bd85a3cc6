// What the launcher sees of itself, its installation, its host and its system.

#pragma once

#include "common/installation.h"

#include <QString>

class Report;

void describeVersion(Report* report);
/// Also says what is missing in the installation. After the layout was chosen.
void describeInstallation(Report* report, InstallationLayout layout);
/// Waits for the look-ups of this host's names.
void describeHost(Report* report);
/// The addresses of `hosts`, the names and addresses of a host with commas
/// between them, in the order in which they would be tried, those of the first
/// entry before all others, and all in order of routability; none when it is
/// null. Waits for the look-ups.
void describeRoutability(Report* report, const QString& hosts);
void describeSystem(Report* report);
