// Functions in headers of src/ that nothing in src/ calls: readers are for tests and for what is
// held ready. A compiler leaves them out of the library, so that the tests would run a copy of
// their own, which is not counted. Here they stand in an object that is.
#include <tuple>

#include "apdu/select.h"
#include "apdu/verify.h"
#include "channel/reader_connection.h"
#include "channel/reader_context.h"
#include "log/logger.h"

namespace {

using namespace KelmoraID;

// Pointers in an object's data are there at run time, and so are the functions.
[[gnu::used]] const std::tuple emitted{
    &FINEID::Select::responseData,
    &FINEID::Verify::data,
    &ReaderConnection::handle,
    &ReaderConnection::protocol,
    &ReaderConnection::readerNameUtf8,
    &ReaderContext::getContext,
    static_cast<void (*)(const char*, const std::string&)>(&logToFile),
    &ReaderContext::isEstablished,
    &ReaderContext::readerNames,
};

}  // namespace
