#pragma once

#include <fcntl.h>

#include "child_process.h"
#include "prelude.h"

namespace tarvex::tool {

struct Outcome {
    int code = 0;
    std::string output;
    std::string errors;
};

/// Makes the program's process another; false when that fails.
using Preparation = std::function<bool()>;

inline Outcome run(std::vector<std::string> arguments, const Preparation& prepare = nullptr) {
    const TemporaryDirectory directory;
    const auto errors = directory.path() / "errors";
    const auto file = ::open(errors.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    arguments.insert(arguments.begin(), TARVEX_TOOL_PROGRAM);
    const test::Program program(std::move(arguments));
    test::ChildProcess process([&](int output) {
        ::dup2(output, STDOUT_FILENO);
        ::dup2(file, STDERR_FILENO);
        if (prepare && !prepare()) return 126;
        return program.become();
    });
    Outcome outcome;
    std::array<char, 4096> piece{};
    for (ssize_t count = 0; (count = ::read(process.output(), piece.data(), piece.size())) > 0;)
        outcome.output.append(piece.data(), static_cast<std::size_t>(count));
    outcome.code = process.wait();
    outcome.errors = contentsOf(errors);
    ::close(file);
    return outcome;
}

}  // namespace tarvex::tool
