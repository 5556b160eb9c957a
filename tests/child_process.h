#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "prelude.h"

namespace tarvex::test {

/// A process that runs `work` and ends with its result; killed, if it still runs, when the object goes. Made before the
/// test opens a database of its own: connections do not survive a fork.
class ChildProcess {
public:
    /// `work` gets the writing end of a pipe, whose reading end is `output`.
    explicit ChildProcess(const std::function<int(int)>& work) {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0) throw std::runtime_error("pipe");
        process_ = fork();
        if (process_ < 0) throw std::runtime_error("fork");
        if (process_ == 0) {
            close(ends[0]);
            _exit(work(ends[1]));
        }
        close(ends[1]);
        output_ = ends[0];
    }
    ~ChildProcess() {
        kill();
        static_cast<void>(wait());
        close(output_);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    int output() const noexcept { return output_; }

    void kill(int signal = SIGKILL) const {
        if (process_ > 0) ::kill(process_, signal);
    }

    /// What `work` returned; -1 when the process was killed.
    int wait() {
        int status = 0;
        if (process_ <= 0 || waitpid(process_, &status, 0) != process_) return -1;
        process_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t process_ = 0;
    int output_ = -1;
};

/// A program with its arguments, made before a process that becomes it: what a process with threads has forked must not
/// allocate, since one of them may have held the allocator's lock.
class Program {
public:
    explicit Program(std::vector<std::string> command) : command_(std::move(command)) {
        for (std::string& word : command_)
            words_.push_back(word.data());
        words_.push_back(nullptr);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Makes this process the program; returns 127 where that fails.
    int become() const {
        ::execv(words_.front(), words_.data());
        return 127;
    }

private:
    std::vector<std::string> command_;
    std::vector<char*> words_;
};

}  // namespace tarvex::test
