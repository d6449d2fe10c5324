// One request to a card and its reply, with one reconnect when the card was reset.
#pragma once

#include "bytes/byte_vector.h"

namespace KelmoraID {

/// Sends a request and gives the whole reply. A card that was reset is reconnected once, and the
/// same bytes go out again; the selection and the verification that the reset took are not
/// restored. No traffic is logged here, since a PIN goes this way.
/// @param sendPci  the protocol record, also of the reconnect
/// @param request  an encoded command APDU (ISO/IEC 7816-4, 5.1)
/// @return at least two bytes: the data and the status word. A stated length beyond the 258 bytes
///         that a short reply can have makes the reply longer by zero bytes (two at least, and up
///         to 512 bytes in all), which then stand where the status word is.
/// @throws TransmitError with the PC/SC code as a signed 32-bit value and the text "Could not
///         reconnect to card." or "Failed to transmit data."; with SCARD_E_UNEXPECTED for a reply
///         of fewer than two bytes
ByteVector exchangeWithReconnect(SCARDHANDLE hCard, const SCARD_IO_REQUEST& sendPci,
                                 const ByteVector& request);

/// Ends a conversation that has no end of its own, as a failed transmission does: the log line and
/// the exception of SCARD_E_UNEXPECTED.
[[noreturn]] void throwEndlessConversation();

}  // namespace KelmoraID
