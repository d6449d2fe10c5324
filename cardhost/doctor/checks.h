// The checks, in the order in which a working card needs what they look at.
#pragma once

#include "doctor/examination.h"

namespace cardhost::doctor {

// Each looks at one subject and adds its findings.
void checkRegistration(Examination& examination);
void checkDriverFiles(Examination& examination);
void checkDriverLibrary(Examination& examination);
void checkPlatform(Examination& examination);
void checkReaders(Examination& examination);
void checkServiceAddresses(Examination& examination);
void checkPinDialog(Examination& examination);
void checkLog(Examination& examination);
void checkCard(Examination& examination);
void checkLogonPolicies(Examination& examination);

/// Runs all checks that the machine has a use for.
void examine(Examination& examination);

}  // namespace cardhost::doctor
