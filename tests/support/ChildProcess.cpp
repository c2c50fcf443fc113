#include "tests/support/ChildProcess.hpp"

#include "KorvaneCore/platform/Bundle.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <utility>

namespace Korvane::Testing {

namespace {

constexpr int patience = 20'000; // ms; only a hanging process ever takes so long

std::pair<FileDescriptor, FileDescriptor> makePipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

} // namespace

std::filesystem::path builtProgram(const std::string& name) {
    return programPath().parent_path() / name;
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments) {
    auto [childInput, input] = makePipe();
    auto [output, childOutput] = makePipe();
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const auto& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    pid_ = ::fork();
    if (pid_ < 0)
        throw std::runtime_error("no process");
    if (pid_ == 0) {
        ::dup2(childInput.get(), STDIN_FILENO);
        ::dup2(childOutput.get(), STDOUT_FILENO);
        ::execv(argv.front(), argv.data());
        ::_exit(127);
    }
    input_ = std::move(input);
    output_ = std::move(output);
}

ChildProcess::~ChildProcess() {
    if (pid_ < 0)
        return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
}

std::string ChildProcess::readLine() {
    std::string line;
    char c = 0;
    while (true) {
        pollfd waiting{output_.get(), POLLIN, 0};
        if (::poll(&waiting, 1, patience) <= 0)
            throw std::runtime_error("the process says nothing");
        if (::read(output_.get(), &c, 1) != 1 || c == '\n')
            return line;
        line += c;
    }
}

std::string ChildProcess::readAll() {
    std::string all;
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    while ((count = ::read(output_.get(), buffer.data(), buffer.size())) > 0)
        all.append(buffer.data(), static_cast<std::size_t>(count));
    return all;
}

void ChildProcess::writeLine(const std::string& line) {
    const auto text = line + "\n";
    if (::write(input_.get(), text.data(), text.size()) != std::ssize(text))
        throw std::runtime_error("the process does not listen");
}

void ChildProcess::signal(int number) const {
    ::kill(pid_, number);
}

int ChildProcess::wait() {
    int status = 0;
    ::waitpid(std::exchange(pid_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

ProgramResult runProgram(const std::string& name, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), builtProgram(name).string());
    ChildProcess process(arguments);
    process.closeInput();
    ProgramResult result;
    result.output = process.readAll();
    result.exitCode = process.wait();
    return result;
}

} // namespace Korvane::Testing
