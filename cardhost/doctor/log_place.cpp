// The driver's log: whether it is on, and who can write it.
#include <fmt/format.h>

#include "doctor/checks.h"

namespace cardhost::doctor {

void checkLog(Examination& examination) {
    constexpr std::uint64_t large = 100'000'000;
    Findings& findings = examination.findings;
    const LogPlace log = examination.machine.log();
    if (!log.redirected.empty()) {
        findings.note("log.redirected", "log",
                      "lines of 32-bit programs of this user went to " + log.redirected,
                      "Read that file too; it keeps what these programs could not write into the "
                      "log itself.");
    }
    if (!log.folderExists) {
        findings.well("log.off", "log", fmt::format("off: there is no folder {}", log.folder));
        return;
    }
    if (!log.isWritable) {
        findings.note("log.not-writable", "log",
                      fmt::format("{} cannot be written by this user: {}. Lines of this user's "
                                  "programs are lost",
                                  log.file, log.reason),
                      examination.machine.isWindows()
                          ? fmt::format("While you look for a fault, as administrator: icacls "
                                        "\"{}\" /grant *S-1-5-32-545:(OI)(CI)W and take it back "
                                        "afterwards: icacls \"{}\" /remove:g *S-1-5-32-545",
                                        log.folder, log.folder)
                          : "Give this user the right to write there while you look for a fault.");
        return;
    }
    findings.well("log.on", "log",
                  log.fileExists ? fmt::format("on: {}, {} bytes", log.file, log.size)
                                 : fmt::format("on: {} is made with the first line", log.file));
    if (log.size > large) {
        findings.note("log.large", "log",
                      fmt::format("has {} bytes, and nothing cuts it", log.size),
                      "Move it away; the driver makes a new one.");
    }
    if (log.fileExists) {
        findings.note("log.explain", "log", "can be explained",
                      fmt::format("cardhost doctor --log \"{}\"", log.file));
    }
}

}  // namespace cardhost::doctor
