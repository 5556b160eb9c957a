#pragma once

#include <memory>

namespace tarvex::test {

/// A window of another application, which takes the focus. Goes with the object.
class OtherApplication {
public:
    OtherApplication();
    ~OtherApplication();
    OtherApplication(const OtherApplication&) = delete;
    OtherApplication& operator=(const OtherApplication&) = delete;

private:
    struct Connection;
    std::unique_ptr<Connection> connection_;
};

}  // namespace tarvex::test
