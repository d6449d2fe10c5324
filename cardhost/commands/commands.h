// The commands: each adds its own name and options to the command line and says what is to be done
// if they are given.
#pragma once

namespace cardhost {

class Commands;

void addInfo(Commands& commands);
void addExport(Commands& commands);
void addVerify(Commands& commands);
void addSign(Commands& commands);
void addDecrypt(Commands& commands);
void addAgree(Commands& commands);
void addLogon(Commands& commands);
void addRecord(Commands& commands);
void addReport(Commands& commands);
void addList(Commands& commands);
void addDoctor(Commands& commands);

}  // namespace cardhost
