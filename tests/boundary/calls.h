// What a row of calls answers, written down as text and compared with what is kept of it in
// tests/data/calls.
#pragma once

#include <functional>
#include <string>

#include "platform_side.h"

namespace boundary {

/// Writes down what the calls of one card answer.
class Calls {
public:
    explicit Calls(int cardType, bool hasLogFile = true)
        : card(cardType), hasLogFile_(hasLogFile) {}
    ~Calls();
    Calls(const Calls&) = delete;
    Calls& operator=(const Calls&) = delete;

    /// One call: what is special about it, and the call itself, which may tell what came back.
    void call(const std::string& what, const std::function<DWORD()>& work);
    /// Of the call that is being made.
    void tell(const std::string& name, const std::string& value) {
        told_ += ", " + name + " " + value;
    }
    void tell(const std::string& name, std::uint32_t value) { tell(name, std::to_string(value)); }
    void tellBytes(const std::string& name, const void* bytes, std::size_t size);

    /// What came back, if anything did.
    template <typename Buffer>
    void free(Buffer*& buffer) {
        data.pfnCspFree(buffer);
        buffer = nullptr;
    }

    const std::string& text() const { return text_; }

    PlatformSide card;
    CARD_DATA& data = card.data;

private:
    void writeLines(const char* channel, const KelmoraID::testing::LogLines& lines);

    bool hasLogFile_;
    std::string text_;
    std::string told_;
};

/// What is kept under a name.
std::string keptCalls(const std::string& name);
/// The call of the first line in which two texts differ, and that line.
std::string difference(const std::string& name, const std::string& seen, const std::string& kept);
/// Fails the test if the text is another than the kept one, and tells where the whole of it is.
void expectAsKept(const std::string& name, const std::string& seen);

}  // namespace boundary
