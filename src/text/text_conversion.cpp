#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

// The length of -1 makes the terminator part of the conversion and of the result.
constexpr int terminated = -1;

WideString toWide(UINT codePage, const std::string& text) {
    const int length = MultiByteToWideChar(codePage, 0, text.c_str(), terminated, nullptr, 0);
    if (length <= 0) return {};
    WideString wide(static_cast<std::size_t>(length), WCHAR{});
    MultiByteToWideChar(codePage, 0, text.c_str(), terminated, wide.data(), length);
    return wide;
}

}  // namespace

WideString utf8ToWide(const std::string& text) {
    return toWide(CP_UTF8, text);
}

std::string wideToUtf8(const WideString& text) {
    const int length =
        WideCharToMultiByte(CP_UTF8, 0, text.c_str(), terminated, nullptr, 0, nullptr, nullptr);
    if (length <= 0) return {};
    std::string narrow(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), terminated, narrow.data(), length, nullptr,
                        nullptr);
    return narrow;
}

std::string ansiToUtf8(const std::string& text) {
    return wideToUtf8(toWide(CP_ACP, text));
}

std::string ansiBytesToUtf8(const ByteVector& bytes) {
    return ansiToUtf8(std::string(bytes.begin(), bytes.end()));
}

}  // namespace KelmoraID
