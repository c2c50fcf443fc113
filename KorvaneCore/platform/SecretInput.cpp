#include "KorvaneCore/platform/SecretInput.hpp"

#include "KorvaneCore/platform/FileDescriptor.hpp"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

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

/// A secret as it is read. Its memory is never moved, and what is not handed over is overwritten.
class Line {
public:
    Line() { text_.reserve(longest); }

    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    ~Line() { eraseAll(); }

    [[nodiscard]] std::size_t size() const { return text_.size(); }

    void add(char byte) { text_.push_back(byte); }

    void eraseCharacter() {
        while (!text_.empty() && (static_cast<unsigned char>(text_.back()) & 0xC0) == 0x80)
            eraseByte(); // the rest of a UTF-8 character
        if (!text_.empty())
            eraseByte();
    }

    void eraseAll() {
        while (!text_.empty())
            eraseByte();
    }

    std::string handOver() { return std::move(text_); }

private:
    void eraseByte() {
        ::explicit_bzero(&text_.back(), 1);
        text_.pop_back();
    }

    std::string text_;
};

} // namespace

std::string ask(std::string_view prompt) {
    const FileDescriptor terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC));
    if (terminal.get() < 0)
        throw Error("there is no terminal to ask on; hand it over with a file descriptor");
    put(terminal.get(), prompt);
    const RawTerminal raw(terminal.get());
    Line line;
    for (char byte = 0; next(terminal.get(), byte);) {
        if (byte == '\n' || byte == '\r') {
            put(terminal.get(), "\n");
            return line.handOver();
        }
        if (byte == interrupt || byte == endOfInput)
            break;
        if (byte == backspace || byte == rubOut)
            line.eraseCharacter();
        else if (byte == eraseLine)
            line.eraseAll();
        else if (line.size() < longest)
            line.add(byte);
    }
    put(terminal.get(), "\n");
    throw Error("given up");
}

bool canRead(int fd) noexcept {
    const int flags = ::fcntl(fd, F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) != O_WRONLY;
}

std::string readLine(int fd) {
    Line line;
    for (char byte = 0; next(fd, byte);) {
        if (byte == '\n')
            return line.handOver();
        if (line.size() == longest)
            throw Error("the secret is too long");
        line.add(byte);
    }
    if (line.size() == 0)
        throw Error("the file descriptor holds no secret");
    return line.handOver();
}

} // namespace Korvane::SecretInput
