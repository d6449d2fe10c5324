// The checks, in the order in which a working card needs what they look at.
#pragma once

#include <functional>

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

/// Runs all checks that the machine has a use for. `atEnd` is called as each section ends.
void examine(Examination& examination, const std::function<void()>& atEnd);

}  // namespace cardhost::doctor
