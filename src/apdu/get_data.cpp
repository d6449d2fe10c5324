#include "apdu/get_data.h"

#include <algorithm>
#include <array>

namespace KelmoraID::FINEID {
namespace {

// The tag that a selector asks for within its object, before the closing 80.
struct InnerTemplate {
    BYTE selector;
    std::array<BYTE, 2> tag;
    std::size_t tagLength;
};
constexpr std::array<InnerTemplate, 6> innerTemplates{{
    {0x81, {0x7F, 0x41}, 2},
    {0x8A, {0xA2}, 1},
    {0x90, {0x7F, 0x48}, 2},
    {0xA0, {0x7F, 0x49}, 2},
    {0xA1, {0xA3}, 1},
    {0xFB, {0x7B}, 1},
}};

// Three templates, one in the other, each with its length.
constexpr std::size_t outerLength = 8;

ByteVector innerOf(BYTE selector) {
    ByteVector inner;
    inner.reserve(3);
    const auto row = std::ranges::find(innerTemplates, selector, &InnerTemplate::selector);
    if (row != innerTemplates.end()) {
        inner.assign(row->tag.begin(),
                     row->tag.begin() + static_cast<std::ptrdiff_t>(row->tagLength));
    }
    inner.push_back(0x80);
    return inner;
}

}  // namespace

GetData::GetData(BYTE selector, BYTE reference, bool wrapped) {
    if (wrapped) {
        data_ = {0x4D, 0x08, 0x70, 0x06, 0xBF, selector, reference, 0x02, 0xA0, 0x80};
        return;
    }
    const ByteVector inner = innerOf(selector);
    const auto length = static_cast<BYTE>(inner.size());
    data_.reserve(outerLength + inner.size());
    data_ = {0x4D,      static_cast<BYTE>(length + 6),
             0x70,      static_cast<BYTE>(length + 4),
             0xBF,      selector,
             reference, length};
    data_.insert(data_.end(), inner.begin(), inner.end());
}

std::optional<ApduRequest> GetData::handleResponse(const ApduResponse& response) {
    if (response.data) {
        if (!responseData_) responseData_.emplace();
        responseData_->insert(responseData_->end(), response.data->begin(), response.data->end());
    }
    // quirk: le-of-get-data. 00, which asks for all there is, whatever SW2 says.
    if (response.SW1 == 0x61) return ApduRequest(0x00, 0xC0, 0x00, 0x00, std::nullopt, BYTE{0x00});
    return std::nullopt;
}

ApduRequest GetData::buildRequest() {
    return ApduRequest(0x00, 0xCB, 0x3F, 0xFF, data_, BYTE{0x00});
}

}  // namespace KelmoraID::FINEID
