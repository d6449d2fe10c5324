// The program virtual-card, with this test as the virtual reader driver that it connects to.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "card_session.h"

extern char** environ;

namespace virtual_card {
namespace {

constexpr int longestWait = 60'000;  // milliseconds; for a broken program only

/// A TCP port of this machine that waits for the program.
class Driver {
public:
    Driver() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(::listen(listener_, 1), 0);
        EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), 0);
        port_ = ntohs(address.sin_port);
    }
    ~Driver() {
        close();
        ::close(listener_);
    }

    std::string port() const { return std::to_string(port_); }

    void accept() {
        ASSERT_TRUE(isReadable(listener_));
        connection_ = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        ASSERT_GE(connection_, 0);
    }
    void close() {
        if (connection_ >= 0) ::close(connection_);
        connection_ = -1;
    }

    /// The length and the bytes apart, as the driver sends them.
    void send(std::string_view message) {
        Bytes bytes = fromHex(message);
        const Bytes length{0x00, static_cast<std::uint8_t>(bytes.size())};
        ASSERT_EQ(::send(connection_, length.data(), 2, MSG_NOSIGNAL), 2);
        ASSERT_EQ(::send(connection_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    std::string receive() {
        Bytes length = receive(2);
        if (length.size() != 2) return "closed";
        return toHex(receive(static_cast<std::size_t>(length[0]) * 256 + length[1]));
    }
    std::string ask(std::string_view message) {
        send(message);
        return receive();
    }

private:
    static bool isReadable(int descriptor) {
        pollfd waiting{descriptor, POLLIN, 0};
        return ::poll(&waiting, 1, longestWait) == 1;
    }
    Bytes receive(std::size_t count) {
        Bytes bytes(count);
        std::size_t done = 0;
        while (done < count && isReadable(connection_)) {
            ssize_t got = ::recv(connection_, bytes.data() + done, count - done, 0);
            if (got <= 0) break;
            done += static_cast<std::size_t>(got);
        }
        bytes.resize(done);
        return bytes;
    }

    int listener_;
    int connection_ = -1;
    unsigned port_ = 0;
};

class Program : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "virtual-card-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        folder = pattern;
    }
    void TearDown() override {
        if (process > 0) end(SIGKILL);
        std::filesystem::remove_all(folder);
    }

    void start(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), VIRTUAL_CARD_PROGRAM);
        std::vector<char*> pointers;
        for (std::string& argument : arguments) pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        const std::string output = (folder / "output").string();
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_addopen(&actions, 1, output.c_str(),
                                           O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::posix_spawn_file_actions_adddup2(&actions, 1, 2);
        ASSERT_EQ(::posix_spawn(&process, VIRTUAL_CARD_PROGRAM, &actions, nullptr, pointers.data(),
                                environ),
                  0);
        ::posix_spawn_file_actions_destroy(&actions);
    }
    void startCard(std::vector<std::string> more = {}) {
        std::vector<std::string> arguments{"--generation", "5", "--port", driver.port()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        start(arguments);
        driver.accept();
    }

    /// Waits for the program's end, after a signal where one is given. @return its exit code
    int end(int signal = 0) {
        if (signal != 0) ::kill(process, signal);
        int status = 0;
        ::waitpid(process, &status, 0);
        process = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string output() {
        std::ifstream file(folder / "output");
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

    Driver driver;
    std::filesystem::path folder;
    pid_t process = -1;
};

TEST_F(Program, AnswersTheDriverAsACard) {
    startCard();
    driver.send("01");  // power on
    EXPECT_EQ(driver.ask("04"), generationOf(5).atr);
    EXPECT_EQ(driver.ask("00A4000C023F00"), "9000");
    EXPECT_EQ(driver.ask("00A4000C021234"), "6A82");
    EXPECT_EQ(end(SIGTERM), 0);
    EXPECT_EQ(output(),
              "virtual-card: generation 5 (citizen card, P-256) is in the reader at 127.0.0.1, "
              "port " +
                  driver.port() + "\nvirtual-card: taken out of the reader\n");
}

TEST_F(Program, ForgetsAnOpenPinAtPowerOffAndAtReset) {
    startCard();
    for (const char* control : {"00", "02"}) {
        driver.send("01");
        EXPECT_EQ(driver.ask("002000110C313233340000000000000000"), "9000");
        EXPECT_EQ(driver.ask("00200011"), "9000");
        driver.send(control);
        driver.send("01");
        EXPECT_EQ(driver.ask("00200011"), "63C5");
    }
}

TEST_F(Program, EndsWhenTheDriverClosesTheConnection) {
    startCard();
    driver.close();
    EXPECT_EQ(end(), 0);
}

TEST_F(Program, KeepsTriesInItsStateFileBetweenRuns) {
    const std::string state = (folder / "state").string();
    startCard({"--state", state});
    EXPECT_EQ(driver.ask("002000110C393939390000000000000000"), "63C4");
    EXPECT_EQ(end(SIGKILL), -1);  // what is told is written: no clean end is needed
    driver.close();
    startCard({"--state", state});
    EXPECT_EQ(driver.ask("00200011"), "63C4");
    EXPECT_EQ(driver.ask("002000110C393939390000000000000000"), "63C3");
    EXPECT_EQ(end(SIGINT), 0);
}

TEST_F(Program, RefusesAStateFileOfAnotherGeneration) {
    const std::string state = (folder / "state").string();
    std::ofstream(state) << CardSession(3).card.saveState();
    start({"--generation", "5", "--port", driver.port(), "--state", state});
    EXPECT_EQ(end(), 1);
    EXPECT_EQ(output(), "virtual-card: state file '" + state +
                            "': the state is not that of a card of this generation\n");
}

TEST_F(Program, SaysThatThereIsNoDriver) {
    start({"--generation", "3", "--host", "127.0.0.1", "--port", "1"});
    EXPECT_EQ(end(), 1);
    EXPECT_EQ(output(),
              "virtual-card: cannot reach the virtual reader driver at 127.0.0.1, port 1: "
              "Connection refused\n");
}

TEST_F(Program, ExplainsItself) {
    start({"--help"});
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(output(), testing::StartsWith("virtual-card: a FINEID card in software"));
    EXPECT_THAT(output(), testing::EndsWith("  8  organisation card, P-521\n"));
}

TEST_F(Program, RefusesWrongUse) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "no generation given"},
        {{"--generation"}, "option '--generation' needs a value"},
        {{"--generation", "9"}, "there is no generation '9': there are 3, 4, 5, 6, 7, 8"},
        {{"--generation", "33"}, "there is no generation '33': there are 3, 4, 5, 6, 7, 8"},
        {{"--card", "3"}, "unknown option '--card'"},
    };
    for (const auto& [arguments, message] : cases) {
        start(arguments);
        EXPECT_EQ(end(), 2);
        EXPECT_EQ(output(), "virtual-card: " + message + "; see virtual-card --help\n");
    }
}

}  // namespace
}  // namespace virtual_card
