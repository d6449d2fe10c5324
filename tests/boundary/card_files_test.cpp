// The files of a card in other forms, good and broken: what an acquisition and a PIN make of them,
// compared whole with tests/data/calls.
#include <map>

#include "between.h"
#include "calls.h"

namespace boundary {
namespace {

std::uint16_t lastIdentifier(const Bytes& command) {
    const std::size_t end = 5u + command[4];
    return static_cast<std::uint16_t>(command[end - 2] << 8 | command[end - 1]);
}

// Stands between the driver and a reader: learns the files that are read, and gives others in their
// place.
class OtherFiles {
public:
    explicit OtherFiles(PlatformSide& card)
        : between_(card, [this](Between&, const Bytes& command, std::uint8_t* reply,
                                std::uint32_t* replyLength) {
              return transmit(command, reply, replyLength);
          }) {}

    std::map<std::uint16_t, Bytes> learnt;
    std::map<std::uint16_t, Bytes> given;
    /// The control parameters of a given file, by its size.
    std::function<Bytes(std::size_t)> parameters = [](std::size_t size) {
        return Bytes{0x62, 0x04, 0x80, 0x02, BYTE(size >> 8), BYTE(size)};
    };
    std::vector<Bytes> commands;

private:
    std::int32_t transmit(const Bytes& command, std::uint8_t* reply, std::uint32_t* replyLength) {
        commands.push_back(command);
        const bool isSelect = command[1] == 0xA4 && command[3] == 0x04 && command.size() > 6;
        const bool isFile = isSelect && (command[2] == 0x02 || command[2] == 0x09);
        if (command[1] == 0xA4) selected_ = isFile ? lastIdentifier(command) : 0;
        const auto other = given.find(selected_);
        Bytes answer;
        if (other != given.end() && isFile) {
            answer = parameters(other->second.size());
        } else if (other != given.end() && command[1] == 0xB0) {
            const Bytes& file = other->second;
            const std::size_t first =
                std::min(std::size_t{command[2]} << 8 | command[3], file.size());
            const std::size_t count = std::min<std::size_t>(command[4], file.size() - first);
            answer.assign(file.begin() + static_cast<std::ptrdiff_t>(first),
                          file.begin() + static_cast<std::ptrdiff_t>(first + count));
        } else {
            const std::int32_t code = between_.pass(command, reply, replyLength);
            if (code == 0 && command[1] == 0xB0 && *replyLength > 2) {
                Bytes& file = learnt[selected_];
                if (command[2] == 0 && command[3] == 0) file.clear();
                file.insert(file.end(), reply, reply + *replyLength - 2);
            }
            return code;
        }
        answer.insert(answer.end(), {0x90, 0x00});
        std::copy(answer.begin(), answer.end(), reply);
        *replyLength = static_cast<std::uint32_t>(answer.size());
        return 0;
    }

    Between between_;
    std::uint16_t selected_ = 0;
};

// How a length is written.
Bytes lengthOf(std::size_t size, BYTE form) {
    switch (form) {
        case 0x81:
            return {0x81, BYTE(size)};
        case 0x82:
            return {0x82, BYTE(size >> 8), BYTE(size)};
        case 0x83:
            return {0x83, 0x00, BYTE(size >> 8), BYTE(size)};
        default:
            return {form};
    }
}

Bytes element(BYTE tag, const Bytes& value) {
    Bytes result{tag, 0x82, BYTE(value.size() >> 8), BYTE(value.size())};
    result.insert(result.end(), value.begin(), value.end());
    return result;
}

// The same elements with lengths of another form, in what they hold as well.
Bytes recoded(const Bytes& bytes, BYTE form) {
    Bytes result;
    std::size_t at = 0;
    while (at + 2 <= bytes.size()) {
        const BYTE tag = bytes[at];
        std::size_t header = 2;
        std::size_t size = bytes[at + 1];
        if (size == 0x81 && at + 3 <= bytes.size()) {
            header = 3;
            size = bytes[at + 2];
        } else if (size == 0x82 && at + 4 <= bytes.size()) {
            header = 4;
            size = std::size_t(bytes[at + 2] << 8 | bytes[at + 3]);
        }
        if (tag == 0 || at + header + size > bytes.size()) break;
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(at + header);
        Bytes value(first, first + static_cast<std::ptrdiff_t>(size));
        if ((tag & 0x20) != 0) value = recoded(value, form);
        const Bytes length = lengthOf(value.size(), form);
        result.push_back(tag);
        result.insert(result.end(), length.begin(), length.end());
        result.insert(result.end(), value.begin(), value.end());
        at += header + size;
    }
    result.insert(result.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end());
    return result;
}

std::string nameOf(std::uint16_t identifier) {
    return toHex(Bytes{BYTE(identifier >> 8), BYTE(identifier)});
}

// A file in each of its other forms.
void inEachForm(const Bytes& file,
                const std::function<void(const std::string& form, const Bytes& other)>& use) {
    for (const BYTE form : {BYTE{0x81}, BYTE{0x82}, BYTE{0x83}, BYTE{0x80}}) {
        use("with lengths of form " + toHex(Bytes{form}), recoded(file, form));
    }
    use("of no byte", {});
    Bytes other = file;
    other.push_back(0);
    use("with a byte behind it", other);
    other.assign({0x13, 0x82, 0x01, 0x2C});
    other.resize(4 + 0x12C);
    other.insert(other.end(), file.begin(), file.end());
    use("with another element ahead of it", other);
    for (std::size_t size = 1; size <= 4; ++size) {
        if (size > file.size()) break;
        const auto count = static_cast<std::ptrdiff_t>(size);
        use("of " + std::to_string(size) + " bytes", Bytes(file.begin(), file.begin() + count));
        use("less its last " + std::to_string(size), Bytes(file.begin(), file.end() - count));
    }
    constexpr std::size_t most = 48;
    for (std::size_t at = 0; at < std::min(file.size(), most); ++at) {
        other = file;
        other[at] ^= 1;
        use("with another byte " + std::to_string(at), other);
    }
}

constexpr std::size_t largest = 1024;  // Certificates are larger, and not looked into.

std::string seenOfAcquisitions(int cardType) {
    Calls calls(cardType);
    OtherFiles files(calls.card);
    const auto acquire = [&](const std::string& what) {
        calls.call("CardAcquireContext: " + what, [&] {
            files.commands.clear();
            const DWORD status = calls.card.acquire();
            calls.tell("commands", static_cast<DWORD>(files.commands.size()));
            if (status == 0) {
                const Bytes identifier = calls.card.readFile(nullptr, "cardid").bytes;
                calls.tellBytes("cardid", identifier.data(), identifier.size());
                const Bytes map = calls.card.readFile("mscp", "cmapfile").bytes;
                const Bytes hash = hashOf("SHA-256", std::string(map.begin(), map.end()));
                calls.tellBytes("map", hash.data(), 4);
            }
            calls.card.release();
            return status;
        });
    };
    acquire("the files as they are");
    const auto learnt = files.learnt;
    for (const auto& [identifier, file] : learnt) {
        // What a broken certificate is, is the platform's to say, and each says it in its own way.
        const bool isCertificate = identifier >> 8 == 0x43;
        if (isCertificate || file.size() > largest) continue;
        inEachForm(file, [&, identifier = identifier](const std::string& form, const Bytes& other) {
            files.given = {{identifier, other}};
            acquire("file " + nameOf(identifier) + " " + form);
        });
    }
    // The object directory file, whose size the card states in other ways.
    files.given = {{0x5031, learnt.at(0x5031)}};
    const struct {
        const char* what;
        Bytes (*parameters)(std::size_t);
    } sizes[] = {
        {"81",
         [](std::size_t size) {
             return Bytes{0x62, 3, 0x81, 1, BYTE(size)};
         }},
        {"80 in three bytes",
         [](std::size_t size) { return Bytes{0x62, 5, 0x80, 3, 0, BYTE(size >> 8), BYTE(size)}; }},
        {"80 and 81",
         [](std::size_t size) { return Bytes{0x62, 6, 0x81, 1, 1, 0x80, 1, BYTE(size)}; }},
        {"80 in no bytes",
         [](std::size_t) {
             return Bytes{0x62, 2, 0x80, 0};
         }},
        {"82",
         [](std::size_t size) {
             return Bytes{0x62, 3, 0x82, 1, BYTE(size)};
         }},
        {"6F",
         [](std::size_t size) {
             return Bytes{0x6F, 3, 0x80, 1, BYTE(size)};
         }},
        {"a byte more",
         [](std::size_t size) {
             return Bytes{0x62, 3, 0x80, 1, BYTE(size + 1)};
         }},
        {"1 MiB and a byte", [](std::size_t) { return Bytes{0x62, 5, 0x80, 3, 0x10, 0, 1}; }},
        {"nothing", [](std::size_t) { return Bytes{}; }},
    };
    for (const auto& size : sizes) {
        files.parameters = size.parameters;
        acquire(std::string("file 5031 with its size as ") + size.what);
    }
    return calls.text();
}

// Where the limits of a PIN are read from files.
std::string seenOfPins(int cardType) {
    Calls calls(cardType);
    calls.card.acquireOrFail();
    OtherFiles files(calls.card);
    const auto authenticate = [&](const std::string& what) {
        for (const std::string pin : {"123", "123456789012"}) {
            calls.call(
                "CardAuthenticateEx: " + what + ", " + std::to_string(pin.size()) + " digits", [&] {
                    files.commands.clear();
                    calls.card.reader.clearExchanges();
                    const DWORD status = calls.card.authenticate(1, pin);
                    calls.tell("commands", static_cast<DWORD>(files.commands.size()));
                    return status;
                });
        }
        calls.card.authenticate(1, "1234");  // For a wrong one costs a try.
    };
    authenticate("the files as they are");
    const auto learnt = files.learnt;
    for (const auto& [identifier, file] : learnt) {
        if (file.size() > largest) continue;
        inEachForm(file, [&, identifier = identifier](const std::string& form, const Bytes& other) {
            files.given = {{identifier, other}};
            authenticate("file " + nameOf(identifier) + " " + form);
            files.given.clear();
            calls.card.authenticate(1, "1234");
        });
    }
    return calls.text();
}

TEST(CardFiles, InOtherFormsAreTakenExactlyAsItIsKept) {
    expectAsKept("files-card-type-3.txt", seenOfAcquisitions(3));
}

TEST(CardFiles, WithTheLimitsOfAPinAreTakenExactlyAsItIsKept) {
    expectAsKept("files-card-type-5-pin.txt", seenOfPins(5));
}

// A file may name another by any path: the directory's goes out whole up to 255 bytes, which is the
// most that a length byte tells, and not at all beyond; from 257 bytes on a line tells so.
TEST(CardFiles, AreSelectedByPathsOfUpTo255Bytes) {
    for (std::size_t length = 254; length <= 257; ++length) {
        SCOPED_TRACE(length);
        DriverLog log;
        PlatformSide card(5);
        OtherFiles files(card);
        Bytes path(length, 0x44);
        Bytes wanted{0x00, 0xA4, 0x09, 0x04};
        if (length <= 255) {
            wanted.push_back(static_cast<BYTE>(length));
            wanted.insert(wanted.end(), path.begin(), path.end());
        }
        wanted.push_back(0x00);
        path.insert(path.end(), {0x43, 0x31});
        files.given = {{0x5031, element(0xA4, element(0x30, element(0x04, path)))}};
        card.acquire();
        EXPECT_NE(std::ranges::find(files.commands, wanted), files.commands.end());
        const auto lines = log.output();
        const auto tells = [](const auto& line) {
            return line.message.starts_with("Apdu data size too big 257 >");
        };
        EXPECT_EQ(std::ranges::any_of(lines, tells), length == 257);
        card.release();
    }
}

}  // namespace
}  // namespace boundary
