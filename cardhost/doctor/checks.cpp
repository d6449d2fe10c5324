#include "doctor/checks.h"

namespace cardhost::doctor {

namespace {

enum class On { windows, elsewhere, everySystem };

struct Check {
    const char* section;
    On where;
    void (*run)(Examination& examination);
};

constexpr Check checks[] = {
    {"Registration", On::windows, checkRegistration},
    {"Driver files", On::windows, checkDriverFiles},
    {"Driver file", On::elsewhere, checkDriverLibrary},
    {"Platform", On::windows, checkPlatform},
    {"Readers", On::everySystem, checkReaders},
    {"Settings", On::windows, checkServiceAddresses},
    {"PIN dialog", On::windows, checkPinDialog},
    {"Log", On::everySystem, checkLog},
    {"Card", On::everySystem, checkCard},
    {"Policies for logon", On::windows, checkLogonPolicies},
};

}  // namespace

void examine(Examination& examination) {
    const On here = examination.machine.isWindows() ? On::windows : On::elsewhere;
    for (const Check& check : checks) {
        if (check.where != here && check.where != On::everySystem) continue;
        examination.findings.begin(check.section);
        check.run(examination);
        examination.show();
    }
}

}  // namespace cardhost::doctor
