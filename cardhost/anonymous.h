// Takes what tells one card and its holder from another out of a conversation, everything keeping
// its length, so that it can be replayed.
//
// Of certificates (files that begin as one; also where their reading was cut) the subject, the
// serial number, the keys, the signature and the contents of extensions are blanked; the day and
// time of their validity become the first of the month; object identifiers, key usages and the
// issuer stay. In EF.CIAInfo (ISO/IEC 7816-15, 8.10) every text, byte string and time is blanked
// but for the manufacturer; in the directories of objects names, times and long numbers are, and
// the labels stay. What tells the card or its holder and was blanked goes wherever else it occurs.
// What keys computed is blanked too, and what was encrypted to one.
#pragma once

#include "recording/conversation.h"

namespace cardhost {

void anonymize(recording::Conversation& conversation);

}  // namespace cardhost
