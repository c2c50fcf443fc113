#include "KorvaneCore/platform/SecretInput.hpp"

#include "KorvaneCore/platform/FileDescriptor.hpp"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Korvane::SecretInput {

namespace {

constexpr std::size_t longest = 4096;

// Of the terminal in its raw form.
constexpr char interrupt = 0x03;
constexpr char endOfInput = 0x04;
constexpr char backspace = 0x08;
constexpr char eraseLine = 0x15;
constexpr char rubOut = 0x7F;

/// Neither echo nor line editing nor signals, until the end of the scope: a signal at the prompt would leave
/// the terminal without echo.
class RawTerminal {
public:
    explicit RawTerminal(int fd) : fd_(fd) {
        if (::tcgetattr(fd, &before_) != 0)
            throw Error("the terminal cannot be read");
        auto raw = before_;
        raw.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG);
        ::tcsetattr(fd, TCSAFLUSH, &raw);
    }

    RawTerminal(const RawTerminal&) = delete;
    RawTerminal& operator=(const RawTerminal&) = delete;

    ~RawTerminal() { ::tcsetattr(fd_, TCSAFLUSH, &before_); }

private:
    int fd_;
    termios before_{};
};

void put(int fd, std::string_view text) {
    if (::write(fd, text.data(), text.size()) < 0)
        throw Error("the terminal cannot be written");
}

/// One byte; none at the end of the input.
bool next(int fd, char& byte) {
    for (;;) {
        const auto got = ::read(fd, &byte, 1);
        if (got >= 0)
            return got == 1;
        if (errno != EINTR)
            throw Error(std::string("the input cannot be read: ") + std::strerror(errno));
    }
}

void eraseCharacter(std::string& line) {
    while (!line.empty() && (static_cast<unsigned char>(line.back()) & 0xC0) == 0x80)
        line.pop_back(); // the rest of a UTF-8 character
    if (!line.empty())
        line.pop_back();
}

} // namespace

std::string ask(std::string_view prompt) {
    const FileDescriptor terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC));
    if (terminal.get() < 0)
        throw Error("there is no terminal to ask on; hand it over with a file descriptor");
    put(terminal.get(), prompt);
    const RawTerminal raw(terminal.get());
    std::string line;
    line.reserve(longest); // never moved, so that wiping reaches all of it
    for (char byte = 0; next(terminal.get(), byte);) {
        if (byte == '\n' || byte == '\r') {
            put(terminal.get(), "\n");
            return line;
        }
        if (byte == interrupt || byte == endOfInput)
            break;
        if (byte == backspace || byte == rubOut)
            eraseCharacter(line);
        else if (byte == eraseLine)
            line.clear();
        else if (line.size() < longest)
            line.push_back(byte);
    }
    put(terminal.get(), "\n");
    throw Error("given up");
}

std::string readLine(int fd) {
    std::string line;
    line.reserve(longest);
    for (char byte = 0; next(fd, byte);) {
        if (byte == '\n')
            return line;
        if (line.size() == longest)
            throw Error("the secret is too long");
        line.push_back(byte);
    }
    if (line.empty())
        throw Error("the file descriptor holds no secret");
    return line;
}

} // namespace Korvane::SecretInput
