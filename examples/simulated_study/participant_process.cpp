#include "participant_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace simulated_study {

namespace {

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return number_; }
    void reset() {
        if (number_ >= 0) close(number_);
        number_ = -1;
    }

private:
    int number_;
};

class FileActions {
public:
    FileActions() { posix_spawn_file_actions_init(&actions_); }
    ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    void duplicate(int from, int to) { posix_spawn_file_actions_adddup2(&actions_, from, to); }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

void check(int error, const char* what) {
    if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

pid_t start(const std::vector<std::string>& arguments, int output) {
    std::string name = "simulated_study";
    std::vector<std::string> words = arguments;
    std::vector<char*> pointers{name.data()};
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    FileActions actions;
    actions.duplicate(output, STDOUT_FILENO);
    pid_t process = 0;
    check(posix_spawn(&process, "/proc/self/exe", actions.get(), nullptr, pointers.data(), environ),
          "Cannot start a participant's process");
    return process;
}

std::string readAll(int descriptor) {
    std::string text;
    std::array<char, 4096> buffer{};
    while (true) {
        const ssize_t count = read(descriptor, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

Ended runMyself(const std::vector<std::string>& arguments) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) check(errno, "Cannot make a pipe");
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    const pid_t process = start(arguments, writing.number());
    writing.reset();
    Ended ended{.output = readAll(reading.number())};
    while (waitpid(process, &ended.status, 0) < 0 && errno == EINTR) {
    }
    return ended;
}

}  // namespace simulated_study
