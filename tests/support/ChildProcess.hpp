#pragma once

#include "KorvaneCore/platform/FileDescriptor.hpp"

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Korvane::Testing {

/// A program beside the test's own in the build tree.
[[nodiscard]] std::filesystem::path builtProgram(const std::string& name);

/// A second process with pipes on its input and output. Killed, if it still runs, at the end.
class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& arguments);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    /// The next line of output; empty at its end. Waits at most 20 s, then throws.
    std::string readLine();

    /// The rest of the output.
    std::string readAll();

    void writeLine(const std::string& line);

    void closeInput() { input_.close(); }

    void signal(int number) const;

    /// Waits for the end: the exit code, or minus the signal that ended it.
    int wait();

private:
    pid_t pid_ = -1;
    FileDescriptor input_;
    FileDescriptor output_;
};

/// Runs a built program to its end.
struct ProgramResult {
    int exitCode = 0;
    std::string output;
};

[[nodiscard]] ProgramResult runProgram(const std::string& name, std::vector<std::string> arguments);

} // namespace Korvane::Testing
