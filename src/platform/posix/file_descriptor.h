#pragma once

#include <unistd.h>

namespace tarvex::platform {

/// Closes a file that the kernel has opened; negative for none.
class FileDescriptor {
public:
    explicit FileDescriptor(int number) : number_(number) {}
    ~FileDescriptor() {
        if (number_ >= 0) ::close(number_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int number() const { return number_; }

private:
    int number_;
};

}  // namespace tarvex::platform
