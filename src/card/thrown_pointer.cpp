#include "card/thrown_pointer.h"

#include <stdexcept>

namespace KelmoraID {

void throwPointer(const char* text) {
    throw new std::runtime_error(text);  // quirk: thrown-pointers. See the header.
}

}  // namespace KelmoraID
